#!/usr/bin/env bash
# ./dev hostcheck: whether a host keeps what it owes its plug-in, the desk's agent by default. It runs on
# a bus of its own, which ends with it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/common.sh
. scripts/common.sh

# Options of hostcheck, then HOST's command; "--" stands between where there are both.
options=()
if [[ ${1:-} == -* ]]; then
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  [ $# -eq 0 ] || shift
fi

# Tests name the directory in which everything has been built.
if [ -z "${DESK_BUILD:-}" ]; then
  need_packages test
  build dev "hostcheck hostcheck_plugin cloud_agent"
fi
readonly build=${DESK_BUILD:-build/dev}

directory=$(mktemp -d)
bus=
trap '[ -z "$bus" ] || { kill "$bus" && wait "$bus"; } 2>/dev/null || true; rm -rf "$directory"' EXIT
nats-server -a 127.0.0.1 -p -1 --ports_file_dir "$directory" -js -sd "$directory/kv" \
  >"$directory/bus.log" 2>&1 &
bus=$!
ports=$directory/nats-server_$bus.ports
until [ -s "$ports" ]; do
  kill -0 "$bus" 2>/dev/null || fail "hostcheck: the bus did not start: $(cat "$directory/bus.log")"
  sleep 0.05
done
address=$(jq -r '.nats[0]' "$ports")
export TARVEX_BUS_ADDRESS=${address#nats://} TARVEX_KV_ADDRESS=${address#nats://}
export TARVEX_SERIAL_NUMBER=${TARVEX_SERIAL_NUMBER:-HOSTCHECK}
unset TARVEX_SUBJECT_PREFIX
if [ $# -eq 0 ]; then
  options+=(--request-topic "cameras/$TARVEX_SERIAL_NUMBER/request/{name}")
  set -- "$build/bin/cloud_agent" --plugin '{plugin}' --broker '{broker}' \
    --picture-dir "$directory/pictures" --backoff-min-ms 50 --backoff-max-ms 200
fi
"$build/bin/hostcheck" "${options[@]}" "$@"
