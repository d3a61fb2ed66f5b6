#!/usr/bin/env bash
# Installs the Debian packages (cpack -G DEB in a build folder) on a fresh Debian 12 system and
# uses them there, as a new machine would:
#   - a minimal Debian 12 made with debootstrap in a temporary folder (or a copy of one given),
#   - the runtime package alone, installed with apt-get: it must bring no -dev package along,
#   - then the development and tools packages, nothing missing for the programs (ldd),
#   - a program built on them with find_package and with pkg-config (with the compiler, CMake and
#     pkg-config installed besides),
#   - the installed demo (the client against the simulator) run there.
# Needs root, debootstrap and Debian's mirror; takes minutes, so it is run by hand:
#   sudo bash tools/check-deb.sh BUILD_FOLDER [PRISTINE_ROOT]
set -euo pipefail

build=${1:?usage: check-deb.sh BUILD_FOLDER [PRISTINE_ROOT]}
pristine=${2:-}
[ "$(id -u)" -eq 0 ] || { echo "check-deb: run as root (chroot, mount)" >&2; exit 2; }
# The packages of the build's flavour: vdidesktopgrpc (Qt 5) or vdidesktopgrpc-qt6, whose runtime
# package has a hyphen before the soname's number; a build folder holds one flavour's tools.
package=$(sed -n 's/^VDI_PACKAGE:INTERNAL=//p' "$build/CMakeCache.txt" 2>/dev/null || true)
runtime=$(ls "$build"/lib$package[0-9]*_*.deb "$build"/lib$package-[0-9]*_*.deb 2>/dev/null | head -1 || true)
dev=$(ls "$build"/lib$package-dev_*.deb 2>/dev/null | head -1)
tools=$(ls "$build"/vdidesktopgrpc-tools*_*.deb 2>/dev/null | head -1)
[ -n "$runtime" ] && [ -n "$dev" ] && [ -n "$tools" ] ||
    { echo "check-deb: no packages in $build: run cpack -G DEB there first" >&2; exit 2; }

work=$(mktemp -d /var/tmp/vdi-check-deb.XXXXXX)
root=$work/root
cleanup() {
    for m in proc dev/pts dev; do
        mountpoint -q "$root/$m" 2>/dev/null && umount -l "$root/$m"
    done
    rm -rf --one-file-system "$work"
}
trap cleanup EXIT

if [ -n "$pristine" ]; then
    echo "check-deb: copying the fresh system $pristine"
    cp -a "$pristine" "$root"
else
    echo "check-deb: making a fresh Debian 12 (debootstrap, minbase)"
    debootstrap --variant=minbase bookworm "$root" http://deb.debian.org/debian >"$work/debootstrap.log"
fi
mount --bind /dev "$root/dev"
mount --bind /dev/pts "$root/dev/pts"
mount -t proc proc "$root/proc"
cp /etc/resolv.conf "$root/etc/resolv.conf"
cp "$runtime" "$dev" "$tools" "$root/tmp/"
in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 "$@"; }
install_deb() {
    in_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" \
        >>"$work/install.log" || { tail -30 "$work/install.log"; exit 1; }
}

failed=0
dev_packages() {
    in_root dpkg-query -W -f='${Package} ${db:Status-Status}\n' | awk '$2 == "installed" && $1 ~ /-dev$/ {print $1}'
}
echo "check-deb: installing $(basename "$runtime") alone"
in_root apt-get update -qq
before=$(dev_packages)
install_deb "/tmp/$(basename "$runtime")"
devs=$(comm -13 <(echo "$before") <(dev_packages) | tr '\n' ' ')
if [ -n "${devs// }" ]; then
    echo "check-deb: the runtime package brought -dev packages along: $devs"; failed=1
else
    echo "check-deb: the runtime package brought no -dev package along"
fi

echo "check-deb: installing $(basename "$dev") and $(basename "$tools")"
install_deb "/tmp/$(basename "$dev")" "/tmp/$(basename "$tools")"
in_root dpkg-query -W -f='${Package} ${Version} ${db:Status-Status}\n' \
    "$(dpkg-deb -f "$runtime" Package)" "$(dpkg-deb -f "$dev" Package)" "$(dpkg-deb -f "$tools" Package)"
for program in /usr/bin/vdi-simulator /usr/bin/vdi-client; do
    if in_root ldd "$program" | grep -q 'not found'; then
        echo "check-deb: $program misses libraries:"; in_root ldd "$program" | grep 'not found'
        failed=1
    fi
done

echo "check-deb: a program built on the installed package"
install_deb g++ cmake make pkg-config
cp -r "$(dirname "$0")/../tests/install" "$root/tmp/consumer"
if in_root sh -c "cmake -S /tmp/consumer -B /tmp/consumer/build -DVDI_PACKAGE=$package \
                      -DVDI_INSTALLED_INCLUDE_DIR=/usr/include/$package >/dev/null &&
                  cmake --build /tmp/consumer/build -j2 >/dev/null && /tmp/consumer/build/consumer" &&
   in_root sh -c "g++ -std=c++17 -fPIC -o /tmp/pcconsumer /tmp/consumer/consumer.cpp \
                      \$(pkg-config --cflags --libs $package) && /tmp/pcconsumer >/dev/null"; then
    echo "check-deb: built with find_package and with pkg-config, and ran"
else
    echo "check-deb: a program does not build or run on the installed package"; failed=1
fi

echo "check-deb: the installed demo against the installed simulator"
in_root /usr/bin/vdi-demo >"$work/demo.log" 2>&1 || true
tail -3 "$work/demo.log"
grep -q "Demo finished: every step worked." "$work/demo.log" || { echo "check-deb: the demo failed"; failed=1; }

[ "$failed" -eq 0 ] && echo "check-deb: the packages install and work on a fresh Debian 12"
exit "$failed"
