#!/usr/bin/env bash
# Installs the Debian packages Tessel needs; does nothing when all are present.
set -euo pipefail

PACKAGES=(
    cmake
    g++
    make
    python3
    libgtest-dev
    libgmock-dev
    libbenchmark-dev
    android-liblog-dev
    android-libbase-dev
    android-libcutils-dev
    aidl
    libjsoncpp-dev
    zlib1g-dev
    libminizip-dev
    libssl-dev
    openssl
    pigz
    zip
    unzip
    clang
    libclang-rt-14-dev
)

missing=()
for pkg in "${PACKAGES[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "deps: installing ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    SUDO=()
elif command -v sudo >/dev/null 2>&1; then
    SUDO=(sudo)
else
    echo "deps: not root and no sudo; run as root:" >&2
    echo "  apt-get update && apt-get install -y ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${SUDO[@]}" apt-get update -q
"${SUDO[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
