#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds everything and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup-debian.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)"
cd build && ctest --output-on-failure -j"$(nproc)"
