#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds everything and runs the whole test suite: with Qt 5,
# then with Qt 6.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup-debian.sh 5 6
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)"
# The reference is part of that build; this fails too when Doxygen is missing, and any Doxygen
# warning (an undocumented member) fails it.
cmake --build build --target vdidocs

# The frame's race check: stop() against handlers that start, under ThreadSanitizer, in a build
# of its own (only what that one test needs).
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVDI_SANITIZE=thread \
    -DVDI_BUILD_TOOLS=OFF -DVDI_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build-tsan -j"$(nproc)" --target tst_frame
(cd build-tsan && ctest --output-on-failure -R '^tst_frame_race$')

(cd build && ctest --output-on-failure -j"$(nproc)")

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer, in a build of its
# own, the client, the simulator and the examples instrumented too (the installed-package check
# needs no second run).
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVDI_SANITIZE=address,undefined \
    -DVDI_BUILD_BENCHMARKS=OFF -DVDI_BUILD_DOCS=OFF >/dev/null
cmake --build build-asan -j"$(nproc)"
(cd build-asan && ctest --output-on-failure -j"$(nproc)" -E '^tst_install$')

# The whole suite once more, built with Qt 6 in a folder of its own: the library, the tools, the
# examples and every test, the installed package (vdidesktopgrpc-qt6) included. The benchmarks
# and the reference are the same sources as above and are left out here.
cmake -S . -B build-qt6 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVDI_QT_MAJOR_VERSION=6 \
    -DVDI_BUILD_BENCHMARKS=OFF -DVDI_BUILD_DOCS=OFF >/dev/null
cmake --build build-qt6 -j"$(nproc)"
(cd build-qt6 && ctest --output-on-failure -j"$(nproc)")
