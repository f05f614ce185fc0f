#!/usr/bin/env bash
# ./dev memcheck: the contract tests under valgrind's memcheck.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

need_packages bench
build dev "mqttadapter adapter_conformance"
# Each test loads the plug-in anew, and to read its lines each time takes most of the time: names of
# functions will do. They stay known when it is unloaded, for its leaks.
strip --strip-debug -o build/dev/stripped.so build/dev/lib/libmqttadapter.so
# A hundred random documents each take the same ways as thousands do; not a thousand lives either.
JSON_DOCUMENTS=100 valgrind --quiet --error-exitcode=9 --leak-check=full \
  --errors-for-leak-kinds=definite,indirect,possible --keep-debuginfo=yes --num-callers=25 \
  --suppressions=cmake/memcheck.txt \
  build/dev/bin/adapter_conformance build/dev/stripped.so --gtest_brief=1 \
  --gtest_filter="${1:+*$1*}-Unloading.*" ||
  fail "memcheck found something, or a test failed"
say "no error and no leak"
