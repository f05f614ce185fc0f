#!/usr/bin/env bash
# ./dev footprint: what each way of hardening the plug-in costs in size, as the table of
# docs/porting.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

# Bytes of code and data that a library takes in memory.
# usage: loaded_size LIBRARY
loaded_size() { size "$1" | awk 'NR == 2 { print $1 + $2 + $3 }'; }

# The plug-in of an architecture, built with other flags.
# usage: variant ARCHITECTURE NAME "FLAGS" [CMAKE OPTIONS]
variant() {
  local directory=size/$1-$2
  build "$directory" mqttadapter "-DCMAKE_CXX_FLAGS=$3" -DMQTTADAPTER_PLUGIN_ONLY=ON \
    -DMQTTADAPTER_TESTS=OFF "${@:4}" >&2
  loaded_size "build/$directory/lib/libmqttadapter.so"
}

# usage: row ARCHITECTURE [CMAKE OPTIONS]
row() {
  local bare guarded checked both
  bare=$(variant "$1" bare "-fno-stack-protector -D_FORTIFY_SOURCE=0" "${@:2}")
  guarded=$(variant "$1" guarded -D_FORTIFY_SOURCE=0 "${@:2}")
  checked=$(variant "$1" checked -fno-stack-protector "${@:2}")
  both=$(variant "$1" both "" "${@:2}")
  echo "| $1 | $bare | +$((guarded - bare)) | +$((checked - bare)) | $both |"
}

need_packages run
need_packages arm
echo "| | neither | stack protector | checked buffers | as it ships |"
echo "|---|---|---|---|---|"
row amd64
row armhf -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/armhf.cmake"
row arm64 -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm64.cmake"
