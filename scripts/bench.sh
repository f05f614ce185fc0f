#!/usr/bin/env bash
# ./dev bench: what the plug-in's own work costs, and what the agent costs end to end.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

if [ "${1:-}" = --gate ]; then
  need_packages bench
  build dev micro_instructions
  python bench/micro/instructions.py "${@:2}"
  exit
fi
case " $* " in
  *" --help "* | *" -h "*) ;;
  *)
    need_packages bench
    need_npm bench/peers
    build dev "bench_load system_calls cloud_agent virtual_camera mqttadapter micro_bench micro_instructions"
    ;;
esac
python bench/desk/bench_desk.py "$@"
