#!/usr/bin/env bash
# The main job: set up, build the release configuration and run the
# demonstration of two agents on this machine (examples/demo/run.sh): one
# exports part of its tree, the other mounts it with a backup source and
# builds on it, loses it and gets it back.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target agentenv
exec examples/demo/run.sh build/release/tools/agentenv
