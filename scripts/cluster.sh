#!/usr/bin/env bash
# ./dev cluster: bus, databases and broker as one cluster whose nodes are killed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

case " $* " in
  *" --help "* | *" -h "*) ;;
  *)
    need_packages test
    build dev "cloud_agent virtual_camera mqttadapter"
    ;;
esac
python bench/fleet/cluster.py "$@"
