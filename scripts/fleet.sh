#!/usr/bin/env bash
# ./dev fleet: many cameras on shared servers, and what each costs.
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
python bench/fleet/fleet.py "$@"
