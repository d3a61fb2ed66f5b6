#!/usr/bin/env bash
# Installs every Debian package that building, testing and the demo need.
# Idempotent: when everything is present it prints nothing and returns at once.
set -euo pipefail

packages=(
    build-essential cmake pkg-config doxygen
    qtbase5-dev
    libgrpc++-dev protobuf-compiler-grpc libprotobuf-dev protobuf-compiler
    libquazip5-dev
    openssl
    xvfb xauth
)

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
