#!/usr/bin/env bash
# Installs what the build, the tests and the checks need on Debian 12 and is not there yet. Running it
# again does nothing; without missing packages it touches no network and needs no rights.
set -euo pipefail

packages=(
  g++ cmake make ninja-build ccache      # the build; OpenMP comes with g++
  pkg-config                             # the test of the installed copy
  libcli11-dev                           # arguments of tools/qz
  libgtest-dev libgmock-dev              # tests
  libbenchmark-dev                       # benchmarks
  clang libclang-rt-dev libomp-dev       # fuzz targets and the thread sanitizer
  clang-format                           # scripts/format.sh
  python3                                # scripts/compare_builds.py
)

installed() {
  dpkg-query -W -f '${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

if ! command -v dpkg-query >/dev/null; then
  echo "setup: no Debian here, so please see to these yourself: ${packages[*]}" >&2
  exit 0
fi

missing=()
for package in "${packages[@]}"; do
  installed "$package" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || {
    echo "setup: as root, please: apt-get install ${missing[*]}" >&2
    exit 1
  }
  as_root=(sudo)
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -q -y --no-install-recommends "${missing[@]}"
