#!/usr/bin/env bash
# Prints what to type in another terminal while ./dev run goes on: one command that can
# be pasted as it stands for each request.
# usage: try_next.sh BIN_DIR SERIAL_NUMBER MQTT_PORT
set -euo pipefail
readonly bin=$1 sn=$2 mqtt_port=$3

request() {
  local name=$1 body=${2:-}
  printf "  mosquitto_pub -p %s -t 'cameras/%s/request/%s' -m '%s'\n" "$mqtt_port" "$sn" "$name" \
    "{\"id\":\"1\",\"version\":\"1.0\",\"payload\":{\"type\":\"$name\"${body:+,\"body\":$body}}}"
}

cat <<HELP
The camera $sn is up; Ctrl-C ends it. In another terminal, from this folder:

see everything that is published, answers included
  mosquitto_sub -p $mqtt_port -v -t 'cameras/#'

trigger events in the camera
  $bin/camera_ctl car               $bin/camera_ctl car AB12345
  $bin/camera_ctl lane vehicle      $bin/camera_ctl gpio-in 1 1
  $bin/camera_ctl rename "Gate 7"   $bin/camera_ctl serial 0 hello
  $bin/camera_ctl state             $bin/camera_ctl --help

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
echo
