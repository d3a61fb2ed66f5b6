#!/usr/bin/env bash
# Installs every Debian package that building, testing and the demo need, for the Qt versions
# given (5, the default, and/or 6):
#   bash tools/setup-debian.sh        # Qt 5
#   bash tools/setup-debian.sh 6      # Qt 6
#   bash tools/setup-debian.sh 5 6    # both
# Idempotent: when everything is present it prints nothing and returns at once.
set -euo pipefail

packages=(
    build-essential cmake pkg-config doxygen
    libgrpc++-dev protobuf-compiler-grpc libprotobuf-dev protobuf-compiler
    openssl
    xvfb xauth
)
[ $# -gt 0 ] || set -- 5
for qt in "$@"; do
    case $qt in
        5) packages+=(qtbase5-dev libquazip5-dev) ;;
        # QTextCodec lives in Qt 6's Core5Compat.
        6) packages+=(qt6-base-dev qt6-5compat-dev libquazip1-qt6-dev) ;;
        *) echo "setup: no Qt $qt; give 5 and/or 6" >&2; exit 2 ;;
    esac
done

missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
