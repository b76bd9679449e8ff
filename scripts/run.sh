#!/usr/bin/env bash
# The main job: set up, build the release configuration and run the example
# agent program, which creates environment records and prints them.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target records_example
exec build/release/examples/records_example "$@"
