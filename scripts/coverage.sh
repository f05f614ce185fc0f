#!/usr/bin/env bash
# ./dev coverage: the branches of the plug-in that its contract and unit tests take.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

# usage: passes PROGRAM [WORDS]
passes() {
  "build/coverage/bin/$1" "${@:2}" --gtest_brief=1 >build/coverage/tests.log ||
    { cat build/coverage/tests.log; fail "the tests fail"; }
}

need_packages bench
# Not optimised, so that a branch is one of the source. Of those that only exceptions take, or that
# the compiler makes on its own, nothing is counted.
build coverage "mqttadapter adapter_conformance mqtt_adapter_tests" -DMQTTADAPTER_PLUGIN_ONLY=ON \
  -DCMAKE_BUILD_TYPE=None "-DCMAKE_CXX_FLAGS=-O0 -g1 --coverage" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
find build/coverage -name '*.gcda' -delete
passes adapter_conformance build/coverage/lib/libmqttadapter.so
passes mqtt_adapter_tests
gcovr --root . --filter 'src/lib/mqtt_adapter/' --branches --exclude-throw-branches \
  --exclude-unreachable-branches --fail-under-branch 95 build/coverage
