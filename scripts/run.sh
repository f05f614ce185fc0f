#!/usr/bin/env bash
# A camera on the desk: starts everything on loopback, shows what is published, and
# ends everything it started, by process id. Called by ./dev run, from the project's
# folder, after the build.
set -euo pipefail
. scripts/common.sh
# shellcheck source=scripts/children.sh
. scripts/children.sh

seconds=0
cars_per_minute=12
mqtt_port=1884
agent_options=()
while [ $# -gt 0 ]; do
  case "$1" in
    --for) seconds=${2:?--for takes a number of seconds}; shift ;;
    --cars-per-minute) cars_per_minute=${2:?--cars-per-minute takes a number}; shift ;;
    --port) mqtt_port=${2:?--port takes a port}; shift ;;
    --auto-push) agent_options+=(--auto-push) ;;
    *) fail "run: unknown option $1 (see ./dev help)" ;;
  esac
  shift
done
[[ $seconds =~ ^[0-9]+$ ]] || fail "run: --for takes a whole number of seconds, not '$seconds'"

readonly bus_port=6101 kv_port=6102
readonly bin=build/dev/bin run_dir=build/run
readonly sn=${TARVEX_SERIAL_NUMBER:-DESK0001}
export TARVEX_SERIAL_NUMBER=$sn
# The rig stands on the fixed addresses, whatever the shell that calls it has set.
unset TARVEX_BUS_ADDRESS TARVEX_KV_ADDRESS TARVEX_SUBJECT_PREFIX
log_dir=$run_dir/log
mkdir -p "$log_dir" "$run_dir/camera" "$run_dir/pictures" "$run_dir/kv"

trap stop_children EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

for port in $bus_port $kv_port "$mqtt_port"; do
  port_is_free "$port" || fail "run: port $port of 127.0.0.1 is in use"
done

sed "s/@PORT@/$mqtt_port/" scripts/mosquitto.conf.in >"$run_dir/mosquitto.conf"
start_child bus nats-server -a 127.0.0.1 -p $bus_port
start_child kv nats-server -a 127.0.0.1 -p $kv_port -js -sd "$run_dir/kv"
start_child broker "$(PATH=$PATH:/usr/sbin command -v mosquitto)" -c "$run_dir/mosquitto.conf"
for port in $bus_port $kv_port "$mqtt_port"; do
  wait_for "the server on port $port" port_answers "$port"
done
# Somebody has to listen, or results stay in the camera's store. A line per message.
start_child backend mosquitto_sub -h 127.0.0.1 -p "$mqtt_port" -i desk-backend -c -q 1 \
  -t "cameras/$sn/#" -F '%I %t %l bytes'
start_child camera "$bin/virtual_camera" --data "$run_dir/camera" \
  --cars-per-minute "$cars_per_minute"
wait_for "the virtual camera" grep -q "virtual_camera ready" "$log_dir/camera.out"
start_child agent "$bin/cloud_agent" --plugin build/dev/lib/libmqttadapter.so \
  --broker "127.0.0.1:$mqtt_port" --picture-dir "$run_dir/pictures" \
  --id-picture-dir "$run_dir/camera/lane" --print-messages --diagnose "${agent_options[@]}"

wait_for "the agent's connection" grep -q "broker connected" "$log_dir/agent.out"

scripts/try_next.sh "$bin" "$sn" "$mqtt_port"
# What the plug-in prints for its own console stays in the log.
setsid setpriv --pdeathsig TERM tail -n +1 -f "$log_dir/agent.out" |
  grep --line-buffered -E '^[0-9]{4}-' &
adopt_child lines $!
# The first car does not keep anybody waiting.
"$bin/camera_ctl" car >"$log_dir/first_car.out"
if [ "$seconds" -gt 0 ]; then
  start_child timer sleep "$seconds"
fi

wait_for_first_end
[ "$ended" = timer ] || fail "run: $ended ended, see $log_dir/$ended.err"
acknowledged=$(grep -c 'ivs_result.*acknowledged' "$log_dir/agent.out" || true)
[ "$acknowledged" -gt 0 ] || fail "run: no result was acknowledged, see $log_dir/agent.err"
say "$acknowledged results acknowledged in $seconds seconds"
