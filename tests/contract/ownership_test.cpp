// What a host may keep: its copies of payloads and responses, also when the adapter is
// gone and its library unloaded.
#include <dlfcn.h>

#include "adapter_test.h"

namespace {

class Ownership : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    for (const char* service : {"user_get_mate_info", "user_get_rtsp_info", "user_request_talkback",
                                "BUS_WHITE_LIST_INFO", "EVS_BUS_REQUEST", "AD_HTTP_REQUESTION"}) {
      Answers(service, R"({"body":{"a":1}})");
    }
    Answers("ALG_REQUEST_MESSAGE", R"({"body":{"img_path":"/now"}})");
  }
  /// Keeps copies of what was published meanwhile.
  void Keep() {
    while (PublishedHead() != "nothing") {
      heads_.insert(PublishedHead());
      copies_.push_back(PublishedPayload());
      texts_.push_back(Compact(copies_.back()));
    }
    while (BusHeard() != "nothing") {
    }
  }
  void PublishEveryEvent() {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
    RunPosted();
    Deliver("BUS_SRV_LANECTRL_RESULT",
            R"({"results":[{"result_id":1,"event_type":128,"plate_result":{}}],"uid":1,)"
            R"("full_image":[{"full_image_id":1}],"small_image":[{"small_image_id":2}]})");
    Deliver("EVT_SRV_EXTERNAL_TRIGGER", R"({"body":{"flag":1,"source":2}})");
    Deliver("EVS_RS485_READ", R"({"body":{"source":1}})");
    adapter_->SubscribeMessage("offline_record");
    AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":1}})");
    AnswersNext("BUS_GET_IVS_INFO", RecordBytes().str() + "tail");
    CloudSends("check_offline_record",
               R"({"type":"check_offline_record","body":{"enable":"push","max_count":1}})");
    RunPosted();
  }
  void PublishEveryAnswer() {
    AnswersNext("BUS_GET_IVS_INFO", RecordBytes());
    CloudSends("get_last_result", R"({"type":"get_last_result"})");
    AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"img_path":"/then"}})");
    CloudSends("get_image_by_id", R"({"type":"get_image_by_id","body":{"id":5}})");
    CloudSends("agent_rtsp_url", R"({"type":"agent_rtsp_url","body":{"sn":"M1"}})");
    CloudSends("agent_talkback_port",
               R"({"type":"agent_talkback_port","body":{"sn":"M1","window_size":8}})");
    CloudSends("white_list_operator",
               R"({"type":"white_list_operator","body":{"operator_type":"delete"}})");
    CloudSends("wl_check_status", R"({"type":"wl_check_status","body":{"cmd":"get"}})");
    CloudSends("get_io_out_status", R"({"type":"get_io_out_status","body":{"gpio":1}})");
    for (const char* name : {"bind_device_list", "snapshot", "get_sn", "get_device_timestamp",
                             "get_ad_voice", "get_lcd_bright"}) {
      CloudSends(name, std::string(R"({"type":")") + name + "\"}");
    }
    CloudSends("set_ad_voice", R"({"body":{"media_voice_time_ctrl":1}})");
  }
  static bool IsLoaded() {
    void* library = dlopen(LibraryFile(), RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) {
      dlclose(library);
    }
    return library != nullptr;
  }
  std::vector<std::string> TextsOfTheCopies() const {
    std::vector<std::string> texts;
    for (const Json::Value& copy : copies_) {
      texts.push_back(Compact(copy));
    }
    return texts;
  }

  std::set<std::string> heads_;
  std::vector<Json::Value> copies_;
  std::vector<std::string> texts_;  ///< of the copies, as long as the library was there
};

TEST_F(Ownership, OfEveryPayloadAndResponseIsTheHostsAfterUnloading) {
  Console([this] {
    PublishEveryEvent();
    PublishEveryAnswer();
  });
  Keep();
  ASSERT_EQ(heads_.size(), 19U) << "one of each tag";
  ASSERT_FALSE(HasFailure()) << "what points into the library is not read without it";
  const std::string response = Compact(response_);
  Destroy();
  ASSERT_FALSE(IsLoaded());
  EXPECT_EQ(TextsOfTheCopies(), texts_);
  EXPECT_EQ(Compact(response_), response);
}

}  // namespace
