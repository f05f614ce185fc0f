#!/usr/bin/env bash
# ./dev fleet and ./dev cluster: many cameras on shared servers.
# usage: fleet.sh fleet|cluster [OPTIONS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

case " $* " in
  *" --help "* | *" -h "*) ;;
  *)
    need_packages test
    build dev "cloud_agent virtual_camera mqttadapter console"
    ;;
esac
case " $* " in *" --scale "*) need_packages bench ;; esac
python "bench/fleet/$1.py" "${@:2}"
