#!/usr/bin/env bash
# deps.sh [PACKAGE...]: installs the Debian packages the project needs, and
# the extra ones named, only when one is missing.
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  qtbase5-dev liblog4cplus-dev libcurl4-openssl-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang-format python3
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav
  "$@"
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
