#!/usr/bin/env bash
# cross-aarch64.sh [--smoke]: the AArch64 cross build, tested under emulation.
#
# Installs what it needs (as root; idempotent): the cross compiler, user-mode
# QEMU and the :arm64 packages of every library the project links, through
# scripts/deps.sh --arch arm64. Configures build-aarch64/ with
# cmake/toolchain-aarch64-linux-gnu.cmake, builds everything the native build
# builds, installs it into build-aarch64/prefix and checks that each installed
# library and program is an AArch64 ELF file, then runs the whole CTest suite
# under qemu-aarch64 and prints its summary. Fails on any failure.
#
# --smoke builds the libraries, the tools and a few tests, and runs those
# tests, the demo and the install test instead of the whole suite (the CI's
# choice: the whole one takes too long on a cold machine; see the README).
#
# Environment: ZUVO_CROSS_BUILD_DIR moves the build folder;
# ZUVO_TEST_TIME_SCALE (default 4 for this build) multiplies the tests' time
# budgets, since emulated code runs several times slower.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
smoke=0
[ "${1:-}" = "--smoke" ] && smoke=1
dir=${ZUVO_CROSS_BUILD_DIR:-$root/build-aarch64}
arch=arm64
triplet=aarch64-linux-gnu
start=$(date +%s)
stage() { echo "== $* ($(($(date +%s) - start)) s)"; }

stage "packages (native tools, cross compiler, qemu, :$arch libraries)"
deps_log=$(mktemp)
trap 'rm -f "$deps_log"' EXIT
bash scripts/deps.sh --arch "$arch" g++-$triplet qemu-user file | tee "$deps_log"
read -r -a separate <<<"$(sed -n 's/^not co-installable: //p' "$deps_log")"

# A development package that cannot stand beside its native twin (in Debian 12
# libgstreamer-plugins-base1.0-dev, which is not Multi-Arch: same) is unpacked
# into $dir/sysroot instead: its headers and .pc files there, its libraries'
# runtime packages (which are co-installable) installed for $arch. The .pc
# files found there come first (PKG_CONFIG_PATH).
sysroot=$dir/sysroot
unpack_separately() {
  local package=$1 deps=() dep multiarch version stamp
  version=$(apt-cache policy "$package:$arch" | awk '/Candidate:/ { print $2 }')
  stamp=$sysroot/$package.unpacked
  if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$version" ]; then
    return
  fi
  for dep in $(apt-cache show "$package:$arch" | awk '/^Depends:/ && !d { sub(/^Depends: /, ""); d = $0 } END { print d }' |
    tr ',' '\n' | sed 's/|.*//; s/(.*)//; s/:any//; s/ //g'); do
    multiarch=$(apt-cache show "$dep:$arch" 2>/dev/null | awk '/^Multi-Arch:/ && !m { m = $2 } END { print m }')
    # Tools the build runs (pkg-config) stay native.
    [ "$multiarch" = same ] && [[ $dep == lib* || $dep == gir* ]] && deps+=("$dep:$arch")
  done
  if apt-get -s install --no-install-recommends "${deps[@]}" 2>/dev/null | grep -q '^Remv'; then
    echo "$package:$arch: its dependencies would remove native packages; left out"
    return
  fi
  bash scripts/deps.sh "${deps[@]}"
  mkdir -p "$sysroot/debs"
  (cd "$sysroot/debs" && rm -f "${package}"_*.deb && apt-get download -qq "$package:$arch")
  dpkg-deb -x "$sysroot/debs/${package}"_*_"$arch".deb "$sysroot"
  # The unpacked tree stands for /usr: .pc files point into it, and the
  # libraries' development links to the runtime libraries installed for $arch.
  sed -i "s|^prefix=/usr\$|prefix=$sysroot/usr|" "$sysroot/usr/lib/$triplet/pkgconfig/"*.pc
  local link
  for link in "$sysroot/usr/lib/$triplet/"*.so; do
    [ -L "$link" ] && ln -sfn "/usr/lib/$triplet/$(basename "$(readlink "$link")")" "$link"
  done
  echo "$version" >"$stamp"
}
for package in "${separate[@]}"; do
  unpack_separately "$package"
done
[ -d "$sysroot/usr/lib/$triplet/pkgconfig" ] && export PKG_CONFIG_PATH=$sysroot/usr/lib/$triplet/pkgconfig

stage "configure and build ($dir)"
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
scale=()
[ -n "${ZUVO_TEST_TIME_SCALE:-}" ] && scale=(-DZUVO_TEST_TIME_SCALE="$ZUVO_TEST_TIME_SCALE")
cmake -S "$root" -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-$triplet.cmake" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" "${scale[@]}" >/dev/null
# One test per layer, the tools run as processes, and the install test.
smoke_tests=(test_cmpath test_cmreply test_httpclient test_playlistparsers test_controlqueue test_simulatedstreamer
  test_tracklistplaylogic test_zuvoplparse)
if [ "$smoke" = 1 ]; then
  # What is installed (every library and tool) and the smoke tests.
  mapfile -t installable < <(cmake --build "$dir" --target help | sed -n 's/^\.\.\. \(zuvo_[a-z_]*\|zuvo-[a-z]*\)$/\1/p' |
    grep -v -e '_autogen' -e '^zuvo_test_' -e '^zuvo_gst_test_')
  cmake --build "$dir" -j 2 --target "${installable[@]}" "${smoke_tests[@]}"
else
  cmake --build "$dir" -j 2
fi

stage "install ($dir/prefix) and check the architecture"
rm -rf "$dir/prefix"
cmake --install "$dir" --prefix "$dir/prefix" >/dev/null
mapfile -t installed < <(find "$dir/prefix" -type f \( -name '*.so*' -o -perm -u+x \) | sort)
[ ${#installed[@]} -gt 0 ] || { echo "nothing installed"; exit 1; }
wrong=0
for f in "${installed[@]}"; do
  description=$(file -b "$f")
  case $description in
    ELF*"ARM aarch64"*) echo "  ${f#"$dir"/prefix/}: ${description%%,*}, ARM aarch64" ;;
    ELF*) echo "  ${f#"$dir"/prefix/}: NOT AArch64: $description"; wrong=1 ;;
    *) ;; # scripts, data
  esac
done
[ "$wrong" = 0 ] || exit 1

stage "tests under qemu-aarch64"
if [ "$smoke" = 1 ]; then
  tests="^($(IFS='|'; echo "${smoke_tests[*]}")|zuvoplay_demo|install_package)\$"
  (cd "$dir" && ctest --output-on-failure -j 2 -R "$tests")
else
  (cd "$dir" && ctest --output-on-failure -j 2)
fi
stage "done"
