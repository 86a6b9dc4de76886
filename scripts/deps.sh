#!/usr/bin/env bash
# deps.sh [--arch ARCH] [PACKAGE...]: installs the Debian packages the project
# needs, and the extra ones named, only when one is missing.
#
# --arch ARCH (for a cross build, e.g. arm64) adds ARCH to dpkg's
# architectures and installs the libraries below for ARCH too, as multiarch
# packages (name:ARCH) beside the native ones. A library package that cannot
# stand beside its native twin (not "Multi-Arch: same": installing it would
# remove the native one) is left out and its name printed on the last line,
# "not co-installable: ...", for the caller to unpack elsewhere.
set -euo pipefail

arch=""
if [ "${1:-}" = "--arch" ]; then
  arch=$2
  shift 2
fi

# Build and test tools: always native.
tools=(
  g++ cmake make pkg-config
  googletest libbenchmark-dev
  clang-format python3
)
# What the libraries, tools and tests link: native, and for ARCH with --arch.
libraries=(
  qtbase5-dev liblog4cplus-dev libcurl4-openssl-dev
  libgtest-dev libgmock-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly
  gstreamer1.0-libav
)

sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"

packages=("${tools[@]}" "${libraries[@]}" "$@")
separate=()
update=0
if [ -n "$arch" ] && [ "$arch" != "$(dpkg --print-architecture)" ]; then
  if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    $sudo_cmd dpkg --add-architecture "$arch"
    update=1
  fi
  [ "$update" = 1 ] && $sudo_cmd apt-get update -qq
  for p in "${libraries[@]}"; do
    multiarch=$(apt-cache show "$p:$arch" 2>/dev/null | awk '/^Multi-Arch:/ && !m { m = $2 } END { print m }')
    if [ "$multiarch" = same ]; then
      packages+=("$p:$arch")
    else
      separate+=("$p")
    fi
  done
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  [ "$update" = 1 ] || $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
if [ ${#separate[@]} -gt 0 ]; then
  echo "not co-installable: ${separate[*]}"
fi
