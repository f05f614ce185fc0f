#!/usr/bin/env bash
# Prints what to type in another terminal while ./dev run goes on: one command that can be
# pasted as it stands for each event in the camera and for each request.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/common.sh

usage() {
  cat <<HELP
usage: $called_as try [--port PORT]

Lists the commands for the desk that runs; with several, for that with this broker port.
HELP
}

wanted=""
while [ $# -gt 0 ]; do
  case "$1" in
    --port)
      [[ ${2:-} =~ ^[1-9][0-9]{0,4}$ ]] || fail "try: $1 takes a port, not '${2:-}'"
      wanted=$2
      shift
      ;;
    -h | --help) usage; exit ;;
    *) fail "try: unknown option $1 (see $called_as try --help)" ;;
  esac
  shift
done

# A desk writes a file about itself when it is up. One that was killed leaves it behind.
pid="" mqtt_port="" bus_port="" sn="" bin="" as_person=""
running=()
for file in "$state_dir"/run/desk "$state_dir"/run-*/desk; do
  [ -f "$file" ] || continue
  # shellcheck disable=SC1090
  . "$file"
  ! kill -0 "$pid" 2>/dev/null || [ "${wanted:-$mqtt_port}" != "$mqtt_port" ] || running+=("$file")
done
[ ${#running[@]} -gt 0 ] ||
  fail "try: no desk is running${wanted:+ with broker port $wanted} ($called_as run starts one)"
[ ${#running[@]} -eq 1 ] ||
  fail "try: several desks are running, --port chooses: $(sed -n 's/^mqtt_port=//p' "${running[@]}" | paste -sd ' ')"
# shellcheck disable=SC1090
. "${running[0]}"

ctl=$bin/camera_ctl
[ "$bus_port" = 6101 ] || ctl="TARVEX_BUS_ADDRESS=127.0.0.1:$bus_port $ctl"

request() {
  local name=$1 body=${2:-}
  printf "  mosquitto_pub -p %s -t cameras/%s/request/%s -m '%s'\n" "$mqtt_port$as_person" "$sn" "$name" \
    "{\"id\":\"1\",\"version\":\"1.0\",\"payload\":{\"type\":\"$name\"${body:+,\"body\":$body}}}"
}

cat <<HELP
see everything that is published, answers included
  mosquitto_sub -p $mqtt_port$as_person -v -t 'cameras/#'

trigger events in the camera $sn
  $ctl car AB12345
  $ctl lane vehicle
  $ctl gpio-in 1 1
  $ctl serial 0 hello
  $ctl rename "Gate 7"
  $ctl service BUS_GET_IVS_INFO down
  $ctl state
  $ctl --help

send a request
HELP
request get_last_result
request get_sn
request get_device_timestamp
request ivs_trigger
request gpio_out '{"io":1,"value":2,"delay":3000}'
request get_io_out_status '{"gpio":1}'
request set_time '{"year":"2030","month":"1","day":"5","hour":"3","min":"4","sec":"5"}'
request serial_data '{"serialData":[{"serialChannel":0,"data":"aGVsbG8K","dataLen":6}]}'
request snapshot
request get_image_by_id '{"id":1}'
request get_ad_voice
request set_ad_voice '{"media_voice_time_ctrl":[{"begin":"07:00","end":"21:00","volume":60}]}'
request get_lcd_bright
request set_lcd_bright '{"lcd_bright_mode":1,"lcd_bright_time_ctrl":[{"begin":"07:00","end":"19:00","bright":80}]}'
request set_cloud_ctrl '{"type":2}'
request white_list_operator '{"operator_type":"update_or_add","dldb_rec":{"plate":"AB12345"}}'
request wl_check_status '{"cmd":"set","filter_enable":1}'
request bind_device_list
request agent_rtsp_url '{"sn":"VCMATE0001"}'
request agent_talkback_port '{"sn":"VCMATE0001","window_size":64}'
request lanectrl_result_cfg '[{"event":"person_stay","enable":1},{"event":"vehicle_stay","enable":1}]'
request check_offline_record '{"enable":"push","max_count":100,"min_id":0}'
request reboot_dev
