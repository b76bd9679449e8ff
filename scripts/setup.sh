#!/usr/bin/env bash
# Installs what building and testing need on a Debian machine. As root it
# runs apt-get; otherwise it prints the packages to install and fails.
set -euo pipefail

packages=(cmake ninja-build g++ clang libclang-rt-14-dev pkg-config bison
          libgtest-dev libbenchmark-dev libconfig++-dev libcli11-dev nlohmann-json3-dev libssl-dev openssl git locales)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# The tests read and write numbers under a locale with a decimal comma.
comma_locale() { locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; }

if [ ${#missing[@]} -eq 0 ]; then
  if ! comma_locale && [ "$(id -u)" -eq 0 ]; then localedef -i de_DE -f UTF-8 de_DE.UTF-8 || true; fi
  exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
  echo "setup: installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq >/dev/null || true
  apt-get install -y -qq "${missing[@]}" >/dev/null
  comma_locale || localedef -i de_DE -f UTF-8 de_DE.UTF-8 || true
else
  echo "setup: missing packages; run: sudo apt-get install ${missing[*]}" >&2
  exit 1
fi
