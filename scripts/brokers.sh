#!/usr/bin/env bash
# ./dev brokers: the agent with every broker that it is tested with, also those that ./dev test has not,
# and the table of docs/brokers.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

need_packages brokers
need_npm tests/brokers
build dev rig_tests
status=0
build/dev/bin/rig_tests --gtest_brief=1 --gtest_filter='*Brokers*' --gtest_output=json:build/brokers.json ||
  status=$?
python scripts/brokers.py build/brokers.json
exit "$status"
