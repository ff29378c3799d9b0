#!/usr/bin/env bash
# Installs what building, testing and benchmarking need, only where it is missing.
set -euo pipefail
need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "ok installed"; }
for pkg in cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev \
           libimage-exiftool-perl libraw-dev libopenexr-dev openexr libtiff-tools "$@"; do
  have_pkg "$pkg" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  echo "installing: ${need[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi
