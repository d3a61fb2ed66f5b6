#!/usr/bin/env bash
# Installs the built library into a temporary prefix and uses it as an application would:
# only public headers there, the same as compiled, no internal class exported, every header
# compiling on its own, and a program built through find_package that runs.
# Usage: check-install.sh <build dir> <source dir>
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

# The build's flavour: Qt 5 installs as vdidesktopgrpc, Qt 6 as vdidesktopgrpc-qt6.
qt=$(sed -n 's/^VDI_QT_MAJOR_VERSION:[A-Z]*=//p' "$build/CMakeCache.txt")
package=$(sed -n 's/^VDI_PACKAGE:INTERNAL=//p' "$build/CMakeCache.txt")

cmake --install "$build" --prefix "$prefix" >/dev/null
include=$prefix/include/$package
fail() { echo "check-install: $*" >&2; exit 1; }

for internal in basesettings.h vdilog.h vdidesktopgrpcworker_frame.h; do
    [ ! -e "$include/$internal" ] || fail "internal header $internal is installed"
done
for public in vdidesktopgrpcthread.h vdidesktopgrpcworker.h vdidesktopgrpchelper.h utility.h vdidesktopgrpc_export.h; do
    [ -e "$include/$public" ] || fail "public header $public is missing"
done
# The installed headers are the ones the library was compiled with.
for installed in "$include"/*.h; do
    name=$(basename "$installed")
    [ "$name" != vdidesktopgrpc_export.h ] || continue
    compiled=$source/grpchelper/$name
    [ -e "$compiled" ] || compiled=$source/utility/$name
    cmp -s "$compiled" "$installed" || fail "installed $name differs from the compiled one"
done
for internal in vdidesktopgrpcthread_wiring.h vdiconversions.h; do
    [ ! -e "$include/$internal" ] || fail "internal header $internal is installed"
done

library=$(find "$prefix" -name "lib$package.so.*.*" | head -n 1)
[ -n "$library" ] || fail "no installed library"
symbols=$(nm -D --defined-only "$library" | c++filt)
if grep -n "BaseSettings" <<<"$symbols"; then
    fail "BaseSettings is exported and would clash with the settings library's"
fi
grep -q "VdiDesktopGrpcThread::staticMetaObject" <<<"$symbols" || fail "the facade is not exported"

cmake -S "$source/tests/install" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DVDI_PACKAGE="$package" -DVDI_INSTALLED_INCLUDE_DIR="$include" >/dev/null
cmake --build "$work/consumer" -j"$(nproc)" >/dev/null
"$work/consumer/consumer"

# The same program built with nothing but pkg-config's flags, the prefix found from the .pc file.
pcdir=$(dirname "$(find "$prefix" -name "$package.pc" | head -n 1)")
[ -d "$pcdir" ] || fail "no pkg-config file installed"
flags=$(PKG_CONFIG_PATH=$pcdir pkg-config --cflags --libs "$package") || fail "pkg-config cannot resolve $package"
# shellcheck disable=SC2086
g++ -std=c++17 -fPIC -o "$work/pcconsumer" "$source/tests/install/consumer.cpp" $flags \
    || fail "the program does not build with pkg-config's flags"
LD_LIBRARY_PATH=$(dirname "$library") "$work/pcconsumer" >/dev/null || fail "the pkg-config build does not run"
# The example thin client, as a project of its own on the installed package.
cmake -S "$source/examples/thinclient" -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" \
    -DVDI_QT_MAJOR_VERSION="$qt" >/dev/null \
    || fail "the example application does not configure on the installed package"
cmake --build "$work/example" -j"$(nproc)" >/dev/null || fail "the example application does not build on the installed package"
[ -x "$work/example/vdi-thinclient-example" ] || fail "no example application was built"
# The console example, built on the installed package and run against the simulator of the build.
cmake -S "$source/examples/console" -B "$work/console" -DCMAKE_PREFIX_PATH="$prefix" \
    -DVDI_QT_MAJOR_VERSION="$qt" >/dev/null \
    && cmake --build "$work/console" >/dev/null || fail "the console example does not build on the installed package"
simulator=$build/tools/vdi-simulator
if [ -x "$simulator" ]; then
    "$simulator" --mode controller >"$work/simulator.out" 2>/dev/null &
    simulator_pid=$!
    trap 'kill "$simulator_pid" 2>/dev/null; rm -rf "$work"' EXIT
    for _ in $(seq 300); do grep -q '^ready' "$work/simulator.out" && break; sleep 0.1; done
    port=$(awk '/^port/ {print $2}' "$work/simulator.out")
    pem=$(awk '/^pem/ {print $2}' "$work/simulator.out")
    LD_LIBRARY_PATH=$(dirname "$library") "$work/console/vdi-console-example" "$pem" 127.0.0.1 "$port" \
        demo-user demo-password >"$work/console.out" 2>/dev/null || fail "the console example failed against the simulator"
    grep -q $'^Office desktops\toffice-demo-user-1\t' "$work/console.out" || fail "the console example listed no desktop"
fi
echo "check-install: $package: $(find "$include" -name '*.h' | wc -l) headers compile alone; the package links and runs; both examples build on it"
