// Every service answers every request, whatever its bytes, and works on.
#include <random>

#include "desk_camera.h"

namespace virtual_camera {
namespace {

class AnyService : public DeskCamera, public testing::WithParamInterface<const char*> {
 protected:
  void ExpectRefusal(const std::string& request) {
    const std::string answer = Ask(GetParam(), request);
    EXPECT_EQ(Parsed(answer)["state_code"], 400) << request << " -> " << answer;
    EXPECT_TRUE(Parsed(answer)["error"].isString());
  }
};

TEST_P(AnyService, RefusesWhatIsNotARequest) {
  for (const std::string& request :
       {std::string(), std::string("\0", 1), std::string("nonsense"), std::string("[]"),
        std::string("7"), std::string("null"), std::string("{}"), std::string(R"({"type":7})"),
        std::string(R"({"type":"no such type"})"), std::string(R"({"type":null,"body":{}})"),
        std::string(100000, '['), std::string(2000, '\xff')}) {
    ExpectRefusal(request);
  }
}

TEST_P(AnyService, SurvivesBodiesOfEveryTypeOfJson) {
  for (const char* type : {"get_last_ivs",
                           "get_img_path_by_id",
                           "STP_GET_MQTT_OFFLINE_COUNT",
                           "STP_SELECT_MQTT_OFFLINE_RECORD",
                           "STP_SET_MQTT_OFFLINE_STATUS",
                           "STP_CLEAR_MQTT_OFFLINE",
                           "AVS_TRIGGER",
                           "AV_SRV_GET_SNAPSHOT",
                           "evs_get_gpioout",
                           "ss_set_timing",
                           "reboot_dev",
                           "get_ad_voice_config",
                           "set_ad_voice_config",
                           "set_cloud_ctrl",
                           "delete_white_list",
                           "replace_white_list",
                           "select_white_list",
                           "set_wl_check_status",
                           "get_wl_check_status",
                           "user_get_mate_info",
                           "user_get_rtsp_info",
                           "user_request_talkback",
                           "stay_event_enable"}) {
    for (const char* body : {"null", "true", "7", "-1", "1e300", R"("text")", "[]", "[[],{},7]",
                             "{}", R"({"plateid":{}})", R"({"count":-1,"id":[]})",
                             R"({"plates":{}})", R"({"dir":2,"degree":"2"})"}) {
      Ask(GetParam(), std::string(R"({"type":")") + type + R"(","module":7,"body":)" + body + "}");
      Ask(GetParam(), std::string(R"({"type":")") + type +
                          R"(","module":"AD_CONFIG_REQUESTION","body":)" + body + "}");
    }
  }
  EXPECT_EQ(Body("BUS_WHITE_LIST_INFO", R"({"type":"get_wl_check_status"})")["filter_enable"], 0);
}

TEST_P(AnyService, SurvivesRandomBytes) {
  std::mt19937 random(7);
  for (int i = 0; i < 300; ++i) {
    std::string request(random() % 40, '\0');
    for (char& byte : request) {
      byte = static_cast<char>(random());
    }
    Ask(GetParam(), request);
  }
  EXPECT_NO_THROW(CarPasses("A"));
}

INSTANTIATE_TEST_SUITE_P(Queues, AnyService,
                         testing::Values("ALG_REQUEST_MESSAGE", "EVS_GPIO_CONTROL",
                                         "EVS_BUS_REQUEST", "SS_BUS_REQUEST", "EVS_RS485_WRITE",
                                         "AD_HTTP_REQUESTION", "BUS_REQUEST_MESSAGE",
                                         "BUS_GET_IVS_INFO", "BUS_WHITE_LIST_INFO",
                                         "user_get_mate_info", "user_get_rtsp_info",
                                         "user_request_talkback", "stay_event_enable"),
                         [](const auto& queue) { return std::string(queue.param); });

TEST(ServiceTableOfTheCamera, HasThirteenQueues) { EXPECT_EQ(ServiceTable().size(), 13U); }

}  // namespace
}  // namespace virtual_camera
