#!/usr/bin/env bash
# Installs what the build, the tests and the simulator need on Debian 12.
set -euo pipefail

packages=(
  build-essential cmake binutils
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  android-liblog-dev android-libbase-dev
  nlohmann-json3-dev libcli11-dev
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update
$sudo apt-get install -y --no-install-recommends "${missing[@]}"
