#!/usr/bin/env bash
# ./dev package: what is installed on cameras and desks, as Debian packages and archives.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

usage() {
  cat <<'HELP'
usage: ./dev package [--test] [amd64|armhf|arm64]...

Makes the packages of these architectures, or of all, in build/package/ARCHITECTURE/packages, with
their SHA-256 sums. docs/packages.md says what is in each.

  --test              look at what was made, make the last architecture's once more elsewhere, and
                      install amd64's into a Debian of their own, with debootstrap; as root, and
                      some ten minutes

  SOURCE_DATE_EPOCH   the time, in seconds, that stands in what is packed; the last commit's
HELP
}

# Where packages are built, one directory for each architecture.
readonly out=${PACKAGE_BUILD:-package}

# usage: triplet ARCHITECTURE   the directory of its libraries
triplet() {
  case "$1" in
    amd64) echo x86_64-linux-gnu ;;
    armhf) echo arm-linux-gnueabihf ;;
    arm64) echo aarch64-linux-gnu ;;
  esac
}

# Packs what CPack has packed once more, as a .deb that is the same on every machine: its size is what
# dpkg's own tools would tell, not what the files take of this disk; build ids are in order; and the sums
# of debug symbols name files as they are installed.
# usage: pack_again FILE
pack_again() {
  local files=unpacked kilobytes ids
  dpkg-deb --raw-extract "$1" "$files"
  kilobytes=$(find "$files" -path "$files/DEBIAN" -prune -o -type f -printf '%s\n' -o -printf '1\n' |
    awk '{ sum += int(($1 + 1023) / 1024) } END { print sum }')
  ids=$(sed -n 's/^Build-Ids: //p' "$files/DEBIAN/control" | tr ' ' '\n' | sort | paste -sd ' ')
  sed -i "s/^Installed-Size: .*/Installed-Size: $kilobytes/; s/^Build-Ids: .*/Build-Ids: $ids/" \
    "$files/DEBIAN/control"
  (cd "$files" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | sort -z |
    xargs -0 md5sum >DEBIAN/md5sums)
  rm "$1"
  dpkg-deb --root-owner-group -Zgzip --build "$files" "${1%.*}.deb" >/dev/null
  rm -r "$files"
}

# Builds and packs one architecture.
# usage: package ARCHITECTURE
package() {
  local architecture=$1 directory=$out/$1 programs options=() map
  programs="mqttadapter mqttadapter_host mqttadapter_host_bus hostcheck_plugin adapter_conformance adapter_replay"
  # The same files from every directory that they are built in; of two that match, the last one counts.
  map="-ffile-prefix-map=$PWD=. -ffile-prefix-map=$PWD/build/$directory=."
  case "$architecture" in
    amd64) programs+=" cloud_agent virtual_camera camera_ctl console hostcheck" ;;
    *) options=(-DMQTTADAPTER_PLUGIN_ONLY=ON -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/$architecture.cmake") ;;
  esac
  say "$architecture"
  CXXFLAGS=$map ASMFLAGS=$map build "$directory" "$programs" "${options[@]}" \
    -DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_CXX_FLAGS_MINSIZEREL="-Os -g -DNDEBUG" -DCMAKE_BUILD_WITH_INSTALL_RPATH=ON \
    -DMQTTADAPTER_ARCHITECTURE="$architecture" -DCMAKE_INSTALL_PREFIX=/usr \
    -DCMAKE_INSTALL_LIBDIR="lib/$(triplet "$architecture")"
  rm -rf "build/$directory/packages" "build/$directory/_CPack_Packages"
  # dpkg-shlibdeps takes the architecture from the environment.
  (
    cd "build/$directory"
    umask 022
    DEB_HOST_ARCH=$architecture cpack >cpack.log 2>&1
  ) || {
    grep -iE -A 3 'error' "build/$directory/cpack.log" >&2 || tail -n 20 "build/$directory/cpack.log" >&2
    fail "packing failed, see build/$directory/cpack.log"
  }
  (
    cd "build/$directory/packages"
    for file in *.deb *.ddeb; do pack_again "$file"; done
    sha256sum -- *.deb *.tar.gz >SHA256SUMS
    printf '  %s\n' *
  )
}

architectures=() test=no
while [ $# -gt 0 ]; do
  case "$1" in
    amd64 | armhf | arm64) architectures+=("$1") ;;
    --test) test=yes ;;
    -h | --help) usage; exit ;;
    *) fail "package: unknown option $1 (see ./dev package --help)" ;;
  esac
  shift
done
[ ${#architectures[@]} -gt 0 ] || architectures=(amd64 armhf arm64)

need_packages package
[ "$test" = no ] || [ "$(id -u)" -eq 0 ] || fail "package: --test needs root"
# A compiler cache hands out what was compiled in another directory, with its name in it.
export CCACHE_DISABLE=1
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH
for architecture in "${architectures[@]}"; do
  package "$architecture"
done
[ "$test" = no ] ||
  PACKAGE_ARCHITECTURES="${architectures[*]}" python -m unittest discover --start-directory tests/packages
