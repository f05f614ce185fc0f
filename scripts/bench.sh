#!/usr/bin/env bash
# ./dev bench: what the agent costs end to end, against its peers and against the floor.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

case " $* " in
  *" --help "* | *" -h "*) ;;
  *)
    need_packages bench
    need_npm bench/peers
    build dev "bench_load cloud_agent virtual_camera mqttadapter"
    ;;
esac
python bench/desk/bench_desk.py "$@"
