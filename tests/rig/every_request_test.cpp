// Every request: carried out, with bodies that are wrong, and with a service that is
// down, slow or talks nonsense.
#include <algorithm>
#include <iterator>
#include <vector>

#include "rig_test.h"

namespace {

/// What a response says in short: "done" or its code, with "+answer" where it has one.
std::string InShort(const Json::Value& response) {
  const std::string outcome = response["result"].asBool() ? "done" : response["code"].asString();
  return outcome + (response.isMember("answer") ? "+answer" : "");
}

struct RequestCase {
  std::string name;
  std::string good_body;
  std::string done;                         ///< what a good one comes to
  std::vector<std::string> refused_bodies;  ///< "" is none at all
  std::string service = {};                 ///< its queue; empty: none is asked
  std::string down = "refused";
  std::string garbage = "refused";
  bool needs_version = true;
};

std::ostream& operator<<(std::ostream& stream, const RequestCase& row) {
  return stream << row.name;
}

const std::vector<RequestCase>& Cases() {
  static const std::string time =
      R"({"year":"2030","month":"1","day":"5","hour":"3","min":"4","sec":"5"})";
  static const std::vector<RequestCase> cases = {
      {"ivs_trigger", "", "done", {}, "ALG_REQUEST_MESSAGE", "refused", "done"},
      {"gpio_out",
       R"({"io":1,"value":1,"delay":0})",
       "done",
       {"5", "[1]", R"("x")", R"({"io":"x"})", R"({"io":1,"value":[]})"},
       "EVS_GPIO_CONTROL",
       "refused",
       "done",
       false},
      {"get_io_out_status",
       R"({"gpio":1})",
       "done+answer",
       {"", "{}", R"({"gpio":"1"})", R"({"gpio":1.5})", "[]"},
       "EVS_BUS_REQUEST"},
      {"set_time",
       time,
       "done",
       {"", "{}", R"({"year":"2030"})",
        R"({"year":"2030","month":"13","day":"5","hour":"3","min":"4","sec":"5"})",
        R"({"year":"1969","month":"1","day":"5","hour":"3","min":"4","sec":"5"})",
        R"({"year":"2030","month":"x","day":"5","hour":"3","min":"4","sec":"5"})",
        R"({"year":[],"month":"1","day":"5","hour":"3","min":"4","sec":"5"})"},
       "SS_BUS_REQUEST",
       "refused",
       "done"},
      {"reboot_dev", "", "done", {}, "SS_BUS_REQUEST", "refused", "done"},
      {"get_sn", "", "done+answer", {}},
      {"get_device_timestamp", "", "done+answer", {}},
      {"serial_data",
       R"({"serialData":[{"serialChannel":0,"data":"aGVsbG8K","dataLen":6}]})",
       "done",
       {"", "{}", R"({"serialData":"aGVsbG8K"})", R"({"serialData":{}})"},
       "EVS_RS485_WRITE",
       "done",
       "done",
       false},
      {"get_ad_voice", "", "done+answer", {}, "AD_HTTP_REQUESTION", "refused", "refused", false},
      {"set_ad_voice",
       R"({"media_voice_time_ctrl":[]})",
       "done",
       {"", "{}", "[]"},
       "AD_HTTP_REQUESTION",
       "refused",
       "refused",
       false},
      {"get_lcd_bright", "", "done+answer", {}, "AD_HTTP_REQUESTION", "refused", "refused", false},
      {"set_lcd_bright",
       R"({"lcd_bright_mode":1,"lcd_bright_time_ctrl":[]})",
       "done",
       {"", "{}", R"({"lcd_bright_mode":1})", R"({"lcd_bright_time_ctrl":[]})"},
       "AD_HTTP_REQUESTION",
       "refused",
       "refused",
       false},
      {"set_cloud_ctrl",
       R"({"type":3})",
       "done",
       {"", "{}", "[]", R"({"type":"x"})"},
       "BUS_REQUEST_MESSAGE"},
      {"get_image_by_id",
       R"({"id":1})",
       "done+answer",
       {"", "{}", R"({"id":"1"})", R"({"id":77})", R"({"id":-1})"},
       "BUS_GET_IVS_INFO"},
      {"snapshot", "", "done+answer", {}, "ALG_REQUEST_MESSAGE"},
      // The answer is a binary record: any bytes make one.
      {"get_last_result", "", "done+answer", {}, "BUS_GET_IVS_INFO", "refused", "done+answer"},
      {"bind_device_list", "", "done+answer", {}, "user_get_mate_info", "refused", "done+answer"},
      {"agent_rtsp_url",
       R"({"sn":"VCMATE0001"})",
       "done+answer",
       {"", "{}", R"({"sn":null})", R"({"sn":[]})"},
       "user_get_rtsp_info",
       "refused",
       "done+answer"},
      {"agent_talkback_port",
       R"({"sn":"VCMATE0001","window_size":64})",
       "done+answer",
       {"", "{}", R"({"sn":"VCMATE0001"})", R"({"sn":"VCMATE0001","window_size":"x"})"},
       "user_request_talkback",
       "refused",
       "done+answer"},
      {"lanectrl_result_cfg",
       R"([{"event":"person_stay","enable":1}])",
       "done",
       {"", "{}", R"("x")"},
       "stay_event_enable",
       "refused",
       "done"},
      {"white_list_operator",
       R"({"operator_type":"update_or_add","dldb_rec":{"plate":"AB12345"}})",
       "done+answer",
       {"", "{}", R"({"operator_type":5})", R"({"operator_type":"select","plate":"A"})",
        R"({"operator_type":"drop"})"},
       "BUS_WHITE_LIST_INFO",
       "refused+answer",
       "refused+answer"},
      {"wl_check_status",
       R"({"cmd":"set","filter_enable":1})",
       "done+answer",
       {"", "{}", R"({"cmd":5})", R"({"cmd":"drop"})", R"({"cmd":"set"})",
        R"({"cmd":"set","filter_enable":3})", R"({"cmd":"set","filter_enable":"1"})"},
       "BUS_WHITE_LIST_INFO"},
      // Says only whether the re-delivery was ordered.
      {"check_offline_record",
       R"({"enable":"clear"})",
       "done",
       {},
       "BUS_GET_IVS_INFO",
       "done",
       "done"},
  };
  return cases;
}

class EveryRequest : public RigTest, public testing::WithParamInterface<RequestCase> {
 protected:
  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent({"--diagnose"});
    rig_.Ctl({"car", "AB12345"});
    AwaitPlate("AB12345");
  }

  Json::Value Ask(const std::string& body) {
    const Json::Value response = rig_.Request(GetParam().name, body);
    EXPECT_TRUE(response["waited_ms"].isInt()) << response;
    EXPECT_EQ(response["error"].isString(), !response["result"].asBool()) << response;
    return response;
  }

  void ServiceIs(const std::vector<std::string>& mode) {
    std::vector<std::string> command = {"service", GetParam().service};
    command.insert(command.end(), mode.begin(), mode.end());
    rig_.Ctl(command);
  }

  /// How the last bus request of a request ended.
  static std::string BusOutcome(const Json::Value& response) {
    const Json::Value& bus = response["bus"];
    return bus.empty() ? "none" : bus[bus.size() - 1]["outcome"].asString();
  }
};

TEST_P(EveryRequest, IsDoneAndAnswered) {
  const Json::Value response = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(response), GetParam().done) << response;
  EXPECT_EQ(BusOutcome(response), GetParam().service.empty() ? "none" : "answered");
  if (response.isMember("answer")) {
    const Json::Value message = rig_.AwaitMessage(GetParam().name);
    EXPECT_EQ(message["payload"], response["answer"]);
    EXPECT_EQ(message["id"], response["id"]);
  }
}

TEST_P(EveryRequest, IsRefusedWithABodyThatIsWrong) {
  for (const std::string& body : GetParam().refused_bodies) {
    EXPECT_EQ(InShort(Ask(body)), "refused") << body;
  }
}

TEST_P(EveryRequest, OfAnotherVersionIsToldSo) {
  Json::Value payload;
  payload["type"] = GetParam().name;
  if (!GetParam().good_body.empty()) {
    payload["body"] = ParseJson(GetParam().good_body);
  }
  EXPECT_EQ(InShort(rig_.RequestWith(GetParam().name, payload, "1.1")),
            GetParam().needs_version ? "wrong_version" : GetParam().done);
}

/// Of the requests that ask one.
class EveryService : public EveryRequest {};

TEST_P(EveryService, MakesItsRequestComeToThis) {
  ServiceIs({"down"});
  const Json::Value with_none = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(with_none), GetParam().down) << with_none;
  EXPECT_EQ(BusOutcome(with_none), "nobody");
  ServiceIs({"garbage"});
  const Json::Value with_garbage = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(with_garbage), GetParam().garbage) << with_garbage;
  EXPECT_EQ(BusOutcome(with_garbage), "answered");
  ServiceIs({"slow", "60000"});
  const Json::Value with_slow = Ask(GetParam().good_body);
  EXPECT_EQ(InShort(with_slow), GetParam().down) << with_slow;
  EXPECT_EQ(BusOutcome(with_slow), "timed_out");
}

std::vector<RequestCase> CasesWithService() {
  std::vector<RequestCase> cases;
  std::copy_if(Cases().begin(), Cases().end(), std::back_inserter(cases),
               [](const RequestCase& row) { return !row.service.empty(); });
  return cases;
}

std::string NameOf(const testing::TestParamInfo<RequestCase>& test) { return test.param.name; }

INSTANTIATE_TEST_SUITE_P(Rig, EveryRequest, testing::ValuesIn(Cases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Rig, EveryService, testing::ValuesIn(CasesWithService()), NameOf);

TEST(EveryRequestTable, HasThemAll) { EXPECT_EQ(Cases().size(), 23U); }

}  // namespace
