#!/usr/bin/env bash
# ./dev arm: the plug-in for ARM cameras, and its tests in an emulator.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

# The newest version of each library's symbols that a library needs, as a row of docs/porting.md.
# usage: needed_versions ARCHITECTURE LIBRARY
needed_versions() {
  local library=$2 name row="| $1 |"
  for name in GLIBC GLIBCXX CXXABI GCC; do
    row+=" $(readelf --version-info --wide "$library" | grep -oE "Name: ${name}_[0-9.]+" |
      sed 's/.*_//' | sort --version-sort | tail -n 1) |"
  done
  echo "$row"
}

# The rows of docs/porting.md are those of what is built here.
check_versions() {
  local row
  row=$(needed_versions "$@")
  grep -qxF "$row" docs/porting.md || fail "docs/porting.md has another row than: $row"
}

# The contract's and the unit tests of the plug-in that Debian's compiler makes.
# usage: architecture armhf|arm64 [NAME]
architecture() {
  say "$1"
  build "$1" all --preset "$1"
  check_versions "$1" "build/$1/lib/libmqttadapter.so"
  run_tests "$@"
}

# A directory as an SDK has it: Debian's packages of the architecture, unpacked. Boost's headers are
# the same everywhere.
make_sysroot() {
  local packages=(libc6 libc6-dev linux-libc-dev libgcc-s1 libgcc-12-dev libstdc++6
    libstdc++-12-dev libjsoncpp25 libjsoncpp-dev) package
  [ ! -e build/sysroot/complete ] || return 0
  rm -rf build/sysroot
  mkdir -p build/sysroot/packages
  (cd build/sysroot/packages && apt-get download "${packages[@]/%/:armhf}") >build/sysroot.log 2>&1 ||
    fail "the packages of an SDK cannot be fetched, see build/sysroot.log"
  for package in build/sysroot/packages/*.deb; do
    dpkg-deb --extract "$package" build/sysroot
  done
  ln -s /usr/include/boost build/sysroot/usr/include/boost
  touch build/sysroot/complete
}

# Another compiler with a system directory of its own, as C++14. The tests are those of Debian's.
# usage: sdk [NAME]
sdk() {
  say "armhf, with clang and a system directory of its own, as C++14"
  make_sysroot
  build armhf all --preset armhf
  build arm-sdk all -DCMAKE_TOOLCHAIN_FILE=cmake/clang-armhf.cmake -DMQTTADAPTER_PLUGIN_ONLY=ON \
    -DMQTTADAPTER_TESTS=OFF -DCMAKE_CXX_STANDARD=14
  [ $# -gt 0 ] || set -- --label-regex contract
  MQTTADAPTER_LIBRARY=$PWD/build/arm-sdk/lib/libmqttadapter.so run_tests armhf "$@"
}

# An emulated program that had the compiler's loader and the installed libraries would crash.
unset QEMU_LD_PREFIX
need_packages arm
case "${1:-}" in
  armhf | arm64) architecture "$@" ;;
  sdk) sdk "${@:2}" ;;
  *)
    architecture armhf "$@"
    architecture arm64 "$@"
    sdk "$@"
    ;;
esac
