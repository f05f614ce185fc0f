// Every request with JSON of every kind in every place, and with every kind of reply:
// nothing is thrown, the contract's result where it fixes one, and the next good
// request works.
#include "adapter_test.h"

namespace {

struct Request {
  const char* name;
  const char* good;        ///< a payload that is carried out
  const char* queue;       ///< where its request goes; "" if nowhere
  const char* good_reply;  ///< what is answered there
  bool needs_object;       ///< whether a payload that is no object is refused
  bool checks_type;
  bool checks_version;
  bool needs_json_reply;  ///< whether a reply that is no JSON makes it fail
};

const Request kRequests[] = {
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
static_assert(sizeof(kRequests) / sizeof(kRequests[0]) == 23, "every request has its row");

const char* const kValues[] = {"null",
                               "true",
                               "false",
                               "0",
                               "-1",
                               "2147483647",
                               "-2147483648",
                               "4294967295",
                               "18446744073709551615",
                               "-9223372036854775808",
                               "0.5",
                               "-1e300",
                               R"("")",
                               R"("x")",
                               R"("\u0000\ud83d\ude00%s%n")",
                               "[]",
                               "[[]]",
                               "[null,1,\"x\",{}]",
                               "{}",
                               R"({"a":{}})",
                               R"({"type":{},"body":[]})"};

const char* const kGarbage[] = {"no json", "{", "[1,", "{\"body\":", "\xFF\xFE", "{}{}"};

/// Calls `visit` for every way to put `value` into one place of `document`, below its
/// root; the places are those of the document itself.
void ForEachPlace(const Json::Value& document, const Json::Value& value,
                  const std::function<void(const Json::Value&)>& visit) {
  if (document.isObject()) {
    for (const std::string& key : document.getMemberNames()) {
      Json::Value changed = document;
      changed[key] = value;
      visit(changed);
      ForEachPlace(document[key], value, [&](const Json::Value& inner) {
        changed[key] = inner;
        visit(changed);
      });
    }
  } else if (document.isArray()) {
    for (Json::ArrayIndex i = 0; i < document.size(); ++i) {
      Json::Value changed = document;
      changed[i] = value;
      visit(changed);
      ForEachPlace(document[i], value, [&](const Json::Value& inner) {
        changed[i] = inner;
        visit(changed);
      });
    }
  }
}

class AnyJson : public AdapterTest, public testing::WithParamInterface<Request> {
 protected:
  void SetUp() override {
    Start();
    AnswerWell();
  }
  void AnswerWell() {
    if (*GetParam().queue != '\0') {
      Answers(GetParam().queue, GetParam().good_reply);
    }
  }
  /// Sends a payload; fails the test if anything is thrown or the console's reader is.
  bool Send(const Json::Value& payload, const std::string& version = "1.0") {
    bool done = false;
    Console([&] {
      EXPECT_NO_THROW(done = HostRequests(GetParam().name, payload, version));
      EXPECT_NO_THROW(events_->Tick(60000));
    });
    while (BusHeard() != "nothing") {
    }
    while (Published() != "nothing") {
    }
    return done;
  }
  bool SendGood() {
    response_ = Json::Value();
    return Send(Parsed(GetParam().good));
  }
};

TEST_P(AnyJson, TheGoodRequestIsCarriedOut) { EXPECT_TRUE(SendGood()); }

TEST_P(AnyJson, AsThePayload) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    const Json::Value payload = Parsed(value);
    const bool done = Send(payload);
    if (!payload.isObject()) {
      EXPECT_EQ(done, !GetParam().needs_object);
    }
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, AsTheType) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    Json::Value payload = Parsed(GetParam().good);
    payload["type"] = Parsed(value);
    EXPECT_EQ(Send(payload), !GetParam().checks_type);
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, InEveryPlaceOfThePayload) {
  const Json::Value good = Parsed(GetParam().good);
  for (const char* value : kValues) {
    ForEachPlace(good, Parsed(value), [&](const Json::Value& payload) {
      SCOPED_TRACE(Compact(payload));
      Send(payload);
    });
    EXPECT_TRUE(SendGood()) << value;
  }
}

TEST_P(AnyJson, AsTheBodyOfAGoodType) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    Json::Value payload = Parsed(GetParam().good);
    payload["body"] = Parsed(value);
    Send(payload);
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, AsTheReply) {
  for (const char* value : kValues) {
    for (const int result : {1, 0, -1}) {
      SCOPED_TRACE(value);
      Answers(GetParam().queue, value, result);
      Send(Parsed(GetParam().good));
      AnswerWell();
      EXPECT_TRUE(SendGood());
    }
  }
}

TEST_P(AnyJson, InEveryPlaceOfTheReply) {
  Json::Value reply;
  if (GetParam().needs_json_reply || *GetParam().good_reply == '{') {
    reply = Parsed(GetParam().good_reply);
  }
  for (const char* value : kValues) {
    ForEachPlace(reply, Parsed(value), [&](const Json::Value& changed) {
      SCOPED_TRACE(Compact(changed));
      Answers(GetParam().queue, Compact(changed));
      Send(Parsed(GetParam().good));
    });
    AnswerWell();
    EXPECT_TRUE(SendGood()) << value;
  }
}

TEST_P(AnyJson, IsMissedInAReplyWhereItIsNeededOnly) {
  for (const char* garbage : kGarbage) {
    SCOPED_TRACE(garbage);
    Answers(GetParam().queue, garbage);
    EXPECT_EQ(Send(Parsed(GetParam().good)), !GetParam().needs_json_reply);
    AnswerWell();
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, AsTheResponseOfTheHost) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    response_ = Parsed(value);
    Send(Parsed(GetParam().good));
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, OfGreatDepthIsSurvived) {
  Json::Value deep;
  for (int i = 0; i < 900; ++i) {
    Json::Value outer(Json::arrayValue);
    outer[0U].swap(deep);
    deep.swap(outer);
  }
  const Json::Value good = Parsed(GetParam().good);
  ForEachPlace(good, deep, [&](const Json::Value& payload) { Send(payload); });
  Send(deep);
  EXPECT_TRUE(SendGood());
}

TEST_P(AnyJson, UnderAnotherVersionIsRefusedByThoseThatCheckIt) {
  for (const char* version : {"1.1", "", "1", "1.0 ", "2.0"}) {
    response_ = Json::Value();
    EXPECT_EQ(Send(Parsed(GetParam().good), version), !GetParam().checks_version) << version;
  }
  EXPECT_TRUE(SendGood());
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, AnyJson, testing::ValuesIn(kRequests),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
