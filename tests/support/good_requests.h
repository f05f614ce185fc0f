// The 23 requests of the cloud, each as it is carried out.
#pragma once

/// A request that the plug-in serves, with a payload that it carries out.
struct GoodRequest {
  const char* name;
  const char* payload;
  const char* queue;       ///< where its request goes; "" if nowhere
  const char* good_reply;  ///< what is answered there
  bool needs_object;       ///< whether a payload that is no object is refused
  bool checks_type;
  bool checks_version;
  bool needs_json_reply;  ///< whether a reply that is no JSON makes it fail
};

inline constexpr GoodRequest kGoodRequests[] = {
    {"ivs_trigger", "{}", "ALG_REQUEST_MESSAGE", "{}", false, false, true, false},
    {"gpio_out", R"({"type":"gpio_out","body":{"io":1,"value":2,"delay":3}})", "EVS_GPIO_CONTROL",
     "", true, true, false, false},
    {"serial_data",
     R"({"type":"serial_data","body":{"serialData":[)"
     R"({"serialChannel":1,"data":"YQ==","dataLen":1},{"data":"Yg=="}]}})",
     "EVS_RS485_WRITE", "", true, true, false, false},
    {"set_time",
     R"({"type":"set_time","body":{"year":"2024","month":"1","day":"2","hour":"3","min":"4",)"
     R"("sec":"5"}})",
     "SS_BUS_REQUEST", "{}", true, true, true, false},
    {"snapshot", R"({"type":"snapshot"})", "ALG_REQUEST_MESSAGE", R"({"body":{"img_path":"/a"}})",
     true, true, true, true},
    {"reboot_dev", R"({"type":"reboot_dev"})", "SS_BUS_REQUEST", "{}", true, true, true, false},
    {"check_offline_record",
     R"({"type":"check_offline_record","body":{"enable":"push","max_count":1,"min_id":1}})", "", "",
     true, true, true, false},
    {"bind_device_list", R"({"type":"bind_device_list"})", "user_get_mate_info",
     R"({"body":{"a":1}})", true, true, true, false},
    {"agent_rtsp_url", R"({"type":"agent_rtsp_url","body":{"sn":"M1"}})", "user_get_rtsp_info",
     R"({"body":{"a":1}})", true, true, true, false},
    {"agent_talkback_port", R"({"type":"agent_talkback_port","body":{"sn":"M1","window_size":8}})",
     "user_request_talkback", R"({"body":{"a":1}})", true, true, true, false},
    {"lanectrl_result_cfg", R"({"type":"lanectrl_result_cfg","body":[{"a":1}]})",
     "stay_event_enable", "{}", true, true, true, false},
    {"get_image_by_id", R"({"type":"get_image_by_id","body":{"id":5}})", "BUS_GET_IVS_INFO",
     R"({"body":{"img_path":"/a"}})", true, true, true, true},
    {"white_list_operator",
     R"({"type":"white_list_operator","body":{"operator_type":"update_or_add","plate":"A",)"
     R"("dldb_rec":[{"plate":"A"}]}})",
     "BUS_WHITE_LIST_INFO", R"({"body":{"a":1}})", true, true, true, true},
    {"get_device_timestamp", R"({"type":"get_device_timestamp"})", "", "", true, true, true, false},
    {"wl_check_status", R"({"type":"wl_check_status","body":{"cmd":"set","filter_enable":1}})",
     "BUS_WHITE_LIST_INFO", R"({"body":{"filter_enable":1}})", true, true, true, true},
    {"get_sn", R"({"type":"get_sn"})", "", "", true, true, true, false},
    {"get_last_result", R"({"type":"get_last_result"})", "BUS_GET_IVS_INFO", "record", true, true,
     true, false},
    {"get_io_out_status", R"({"type":"get_io_out_status","body":{"gpio":1}})", "EVS_BUS_REQUEST",
     R"({"body":{"gpio_out_status":1}})", true, true, true, true},
    {"get_ad_voice", "{}", "AD_HTTP_REQUESTION", R"({"body":{"media_voice_time_ctrl":{"a":1}}})",
     false, false, false, true},
    {"set_ad_voice", R"({"body":{"media_voice_time_ctrl":{"a":[1]}}})", "AD_HTTP_REQUESTION",
     R"({"body":{"media_voice_time_ctrl":{"a":1}}})", true, false, false, true},
    {"get_lcd_bright", "{}", "AD_HTTP_REQUESTION",
     R"({"body":{"led_bright_mode":1,"led_bright_time_ctrl":[1]}})", false, false, false, true},
    {"set_lcd_bright", R"({"body":{"lcd_bright_mode":1,"lcd_bright_time_ctrl":[1]}})",
     "AD_HTTP_REQUESTION", R"({"body":{"led_bright_mode":1,"led_bright_time_ctrl":[1]}})", true,
     false, false, true},
    {"set_cloud_ctrl", R"({"type":"set_cloud_ctrl","body":{"type":2,"value":5}})",
     "BUS_REQUEST_MESSAGE", R"({"body":{"a":1}})", true, false, true, true},
};
static_assert(sizeof(kGoodRequests) / sizeof(kGoodRequests[0]) == 23, "every request has its row");
