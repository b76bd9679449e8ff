#!/usr/bin/env bash
# Sets up, then builds and runs every test in the default (release) and the
# sanitizer configurations, and checks that an installed copy can be used
# from another CMake project.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
jobs=$(nproc)

for preset in release sanitizer; do
  echo "== $preset build and tests"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done

echo "== installed package used from another project"
prefix=$PWD/build/install-check
rm -rf "$prefix" build/consumer
cmake --install build/release --prefix "$prefix" >/dev/null
# Every installed header compiles on its own with only the installed headers:
# none of them reaches an internal one.
for header in $(cd "$prefix/include" && find Zet AgentEnv -name '*.h' | sort); do
  echo "#include \"$header\"" | c++ -std=c++20 -fsyntax-only -I "$prefix/include" -x c++ - ||
    { echo "installed header $header does not compile on its own"; exit 1; }
done
[ ! -e "$prefix/include/Zet/attrlog" ] && [ ! -e "$prefix/include/Zet/mount" ] ||
  { echo "internal headers were installed"; exit 1; }
cmake -S tests/consumer -B build/consumer -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build/consumer
build/consumer/consumer
# The same program built with what the installed pkg-config files say (the
# prefix differs from the configured one, so they must find it themselves).
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name zetAgentEnv.pc)")
c++ tests/consumer/main.cpp $(pkg-config --cflags --libs zetAgentEnv) \
  -Wl,-rpath,"$(pkg-config --variable=libdir zet)" -o build/consumer/consumer-pkg-config
build/consumer/consumer-pkg-config
(cd examples && "$prefix/bin/agentenv" check -D STORE_TIMEOUT=30 agent.conf)
echo "== all tests passed"
