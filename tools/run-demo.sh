#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and runs the demo: vdi-client against the simulator.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup-debian.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target vdi-client vdi-simulator
build/tools/vdi-demo
