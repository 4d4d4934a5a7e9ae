#!/usr/bin/env bash
# Installs what the build needs from Debian's packages, only what is missing.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang-14 pkg-config binutils
  libboost-dev libboost-thread-dev libboost-system-dev
  libgtest-dev libgmock-dev
  libmount-dev libblkid-dev
  libcli11-dev nlohmann-json3-dev
  python3 python3-dev python3-pybind11 python3-numpy python3-pytest python3-dask python3-distributed
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "Missing packages and not root: run as root, or install them yourself." >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
