#!/usr/bin/env bash
# ./dev abi: the plug-in's binary boundary, held against the committed descriptions in abi/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

# The build directory of an architecture's plug-in.
# usage: directory_of ARCHITECTURE
directory_of() {
  case "$1" in
    amd64) echo dev ;;
    armhf | arm64) echo "$1" ;;
    *) fail "no such architecture: $1" ;;
  esac
}

# What a library shows to those who load it: symbols, and the layout of the types of include/.
# Without anything of the machine that it was built on.
# usage: describe LIBRARY
describe() {
  abidw --exported-interfaces-only --suppressions abi/boundary.ini --no-corpus-path \
    --no-comp-dir-path --no-show-locs --no-parameter-names "$1" |
    sed -E "s,path='[^']*/(abi|src)/,path='\1/,"
}

# Says what of a boundary is not as committed.
# usage: same_boundary COMMITTED DESCRIBED
same_boundary() {
  abidiff --harmless "$1" "$2" | sed '/implicit parameter 0/d; /as being reported/d' || fail "the plug-in's boundary is another one than $1 says;" \
    "hosts and platforms that are built already do not fit to it (./dev abi --write commits to it)"
}

# usage: boundary ARCHITECTURE
boundary() {
  local directory described preset=()
  directory=$(directory_of "$1")
  [ "$directory" = dev ] || preset=(--preset "$1")
  build "$directory" mqttadapter_boundary "${preset[@]}"
  described=build/$directory/boundary.abi
  describe "build/$directory/lib/libmqttadapter_boundary.so" >"$described"
  if [ "$write" = yes ]; then
    cp "$described" "abi/$1.abi"
  else
    same_boundary "abi/$1.abi" "$described"
    say "$1: the boundary is as committed"
  fi
}

# A test has the functions alone.
[ "${BASH_SOURCE[0]}" = "$0" ] || return 0

write=no
architectures=()
for argument in "$@"; do
  case "$argument" in
    --write) write=yes ;;
    *) architectures+=("$argument") ;;
  esac
done
[ ${#architectures[@]} -gt 0 ] || architectures=(amd64 armhf arm64)
need_packages abi
for architecture in "${architectures[@]}"; do
  boundary "$architecture"
done
