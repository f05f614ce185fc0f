#!/usr/bin/env bash
# A camera on the desk: starts everything on loopback, shows what is published, starts again
# what ends, and at the end ends everything it started, by process id.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/common.sh
# shellcheck source=scripts/run_options.sh
. scripts/run_options.sh
# shellcheck source=scripts/children.sh
. scripts/children.sh
# shellcheck source=scripts/ports.sh
. scripts/ports.sh

read_run_options "$@"
readonly mqtt_port=${ports[--port]} bus_port=${ports[--bus-port]} kv_port=${ports[--kv-port]}
readonly link_port=${ports[--link-port]} page=http://127.0.0.1:${ports[--console-port]}

# Tests and the package name the directory in which everything has been built.
if [ -z "${DESK_BUILD:-}" ]; then
  need_packages run
  build dev "cloud_agent virtual_camera camera_ctl mqttadapter console" "${only_to_run[@]}"
fi
readonly build=${DESK_BUILD:-build/dev}

for port in "${!option_of_port[@]}"; do
  ! port_answers "$port" ||
    fail "run: port $port is held by $(port_holder "$port"); ${option_of_port[$port]} takes another"
done

if [ "$mqtt_port" -eq 1884 ]; then
  run_dir=$state_dir/run sn=${TARVEX_SERIAL_NUMBER:-DESK0001}
else
  run_dir=$state_dir/run-$mqtt_port sn=${TARVEX_SERIAL_NUMBER:-DESK$mqtt_port}
fi
readonly run_dir sn log_dir=$run_dir/log
# shellcheck source=scripts/tls.sh
. scripts/tls.sh
export TARVEX_SERIAL_NUMBER=$sn
export TARVEX_BUS_ADDRESS=127.0.0.1:$bus_port TARVEX_KV_ADDRESS=127.0.0.1:$kv_port
# The desk's camera has the bus to itself, whatever the shell that calls has set.
unset TARVEX_SUBJECT_PREFIX
[ "$fresh" = no ] || rm -rf "$run_dir"
mkdir -p "$log_dir" "$run_dir/camera" "$run_dir/pictures" "$run_dir/kv"

trap 'stop_children; rm -f "$run_dir/desk"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

as_console=() as_camera=() as_person=""
if [ "$tls" = no ]; then
  sed "s/@PORT@/$mqtt_port/" scripts/mosquitto.conf.in >"$run_dir/mosquitto.conf"
else
  prepare_certificates
  sed "s/@PORT@/$mqtt_port/; /^allow_anonymous/d" scripts/mosquitto.conf.in >"$run_dir/mosquitto.conf"
  write_tls_settings
  tls_options console
  as_console=("${tls_options[@]}")
  tls_options "$sn"
  as_camera=("${tls_options[@]}")
  as_person=$tls_of_person
fi
start_child bus nats-server -a 127.0.0.1 -p "$bus_port"
start_child kv nats-server -a 127.0.0.1 -p "$kv_port" -js -sd "$run_dir/kv"
start_child broker "$(PATH=$PATH:/usr/sbin command -v mosquitto)" -c "$run_dir/mosquitto.conf"
for port in "$bus_port" "$kv_port" "$mqtt_port"; do
  wait_for "the server on port $port" port_answers "$port"
done
# It subscribes to all that cameras publish: without a subscriber results stay in the store.
start_child console "$build/bin/console" --port "${ports[--console-port]}" \
  --broker "127.0.0.1:$mqtt_port" "${as_console[@]}" --link-port "$link_port" --pictures "$sn=$run_dir/pictures" \
  --agent-pid "$sn=$run_dir/agent.pid"
wait_for "the console" grep -q "console ready" "$log_dir/console.out"
wait_for "the console's subscription" grep -q " cameras/" "$log_dir/broker.err"
start_child camera "$build/bin/virtual_camera" --trace --data "$run_dir/camera" \
  --cars-per-minute "$cars_per_minute"
wait_for "the virtual camera" grep -q "virtual_camera ready" "$log_dir/camera.out"
start_child agent "$build/bin/cloud_agent" --plugin "$build/lib/libmqttadapter.so" \
  --broker "127.0.0.1:$link_port" "${as_camera[@]}" --backoff-max-ms 2000 --status-interval 2 \
  --picture-dir "$run_dir/pictures" --picture-url "$page/pictures/$sn" \
  --id-picture-dir "$run_dir/camera/lane" \
  --trace --print-messages --diagnose "${agent_options[@]}"
wait_for "the agent's connection" grep -q "broker connected" "$log_dir/agent.out"

# What the agent prints of messages, on a terminal in at most 100 columns: it is cut before what
# became of the message. What the plug-in prints for its own console stays in the log.
show_messages() {
  local line fate
  while IFS= read -r line; do
    [[ $line =~ ^[0-9]{4}- ]] || continue
    if [ -t 1 ] && [ ${#line} -gt 100 ]; then
      fate=${line##*: }
      line="${line:0:97-${#fate}}…: $fate"
    fi
    printf '%s\n' "$line"
  done
}

printf '%s\n' "pid=$$" "mqtt_port=$mqtt_port" "bus_port=$bus_port" "sn=$sn" "bin=$build/bin" \
  "as_person='$as_person'" \
  >"$run_dir/desk"
cat <<HELP
$page/  is the camera $sn in a browser; Ctrl-C ends the desk

In another terminal:
  mosquitto_sub -p $mqtt_port$as_person -v -t 'cameras/#'
  mosquitto_pub -p $mqtt_port$as_person -t cameras/$sn/request/get_sn \\
    -m '{"id":"1","version":"1.0","payload":{"type":"get_sn"}}'
  $called_as try      a command for each request, and for each event in the camera
Logs: $log_dir
HELP
# A part that ends meanwhile is started again further down.
kept=$("$build/bin/camera_ctl" state | jq -r -f scripts/kept_state.jq) || true
[ -z "$kept" ] || printf 'The camera comes from an earlier run (--fresh begins anew): %s\n' "$kept"
echo

setsid setpriv --pdeathsig TERM tail -n +1 -f "$log_dir/agent.out" > >(show_messages) &

# The first car does not keep anybody waiting.
"$build/bin/camera_ctl" car >"$log_dir/first_car.out" || true
[ "$seconds" -eq 0 ] || start_child timer sleep "$seconds"
# The shell's own words about processes that were killed are not for people.
while wait_for_an_end && [ "$ended" != timer ]; do
  restart_child "$ended" "$status" || break
done 2>/dev/null
[ "$ended" = timer ] || fail "$ended cannot start: $(last_words "$ended")"
acknowledged=$(grep -c 'ivs_result.*acknowledged' "$log_dir/agent.out" || true)
[ "$acknowledged" -gt 0 ] || fail "run: no result was acknowledged, see $log_dir/agent.err"
say "$acknowledged results acknowledged in $seconds seconds"
