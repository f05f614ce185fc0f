// What the adapter keeps from one message to the next never shows.
#include <functional>
#include <string>
#include <utility>

#include "adapter_test.h"
#include "sigslot.h"

namespace {

/// Asks for more while it is given a message of this name, and keeps what it was given until after
/// that.
class NestedHost : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  NestedHost(std::string name, std::function<void()> ask)
      : name_(std::move(name)), ask_(std::move(ask)) {}
  void OnPush(const std::string& name, const Json::Value& payload, const std::string& /*version*/,
              unsigned long long /*tag*/) {
    if (name != name_ || std::exchange(is_asking_, true)) {
      return;
    }
    const Json::Value before = payload;
    ask_();
    is_asking_ = false;
    EXPECT_EQ(payload, before);
    ++messages;
  }
  int messages = 0;

 private:
  const std::string name_;
  const std::function<void()> ask_;
  bool is_asking_ = false;
};

class KeptDocuments : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool AskForOutput() {
    return CloudSends("get_io_out_status", R"({"type":"get_io_out_status","body":{"gpio":1}})");
  }
  bool AskForCheckStatus() {
    return CloudSends("wl_check_status", R"({"type":"wl_check_status","body":{"cmd":"get"}})");
  }
  static std::string Output(const std::string& value) {
    return R"({"body":{"gpio_out_status":)" + value + "}}";
  }
  static std::string Picture(const std::string& path) {
    return R"({"body":{"img_path":")" + path + R"("}})";
  }
};

TEST_F(KeptDocuments, AReplyCountsAndNotTheOneBefore) {
  for (const char* value : {"1", "1", "0", "1"}) {
    Answers("EVS_BUS_REQUEST", Output(value));
    EXPECT_TRUE(AskForOutput());
    EXPECT_EQ(Published(), R"(get_io_out_status 27 {"gpio":1,"value":)" + std::string(value) + "}");
  }
  for (const char* reply : {"", "no json", "{"}) {
    Answers("EVS_BUS_REQUEST", reply);
    EXPECT_FALSE(AskForOutput());
  }
  Answers("EVS_BUS_REQUEST", Output("1"));
  EXPECT_TRUE(AskForOutput());
  EXPECT_EQ(Published(), R"(get_io_out_status 27 {"gpio":1,"value":1})");
  ClaimEverything();
}

TEST_F(KeptDocuments, ALongReplyCountsToo) {
  for (const char c : {'a', 'a', 'b'}) {
    const std::string text(5000, c);
    Answers("EVS_BUS_REQUEST", Output('"' + text + '"'));
    EXPECT_TRUE(AskForOutput());
    EXPECT_EQ(PublishedPayload()["value"].asString(), text);
  }
  ClaimEverything();
}

TEST_F(KeptDocuments, TheSettingsThatAChangeIsMadeOfAreThoseOfTheDevice) {
  Answers("AD_HTTP_REQUESTION", R"({"body":{"led_bright_mode":1,"media_voice_time_ctrl":[1]}})");
  const std::string read =
      R"(AD_HTTP_REQUESTION {"type":"get_ad_voice_config","module":"AD_CONFIG_REQUESTION"} timeout=2000)";
  for (const char* wanted : {"[5]", "[6]"}) {
    CloudSends("set_ad_voice", R"({"body":{"media_voice_time_ctrl":)" + std::string(wanted) + "}}");
    BusHeard();
    EXPECT_NE(BusHeard().find(R"("media_voice_time_ctrl":)" + std::string(wanted)),
              std::string::npos);
    // The device has not taken it.
    EXPECT_TRUE(CloudSends("get_ad_voice", "{}"));
    EXPECT_EQ(PublishedPayload()["body"]["media_voice_time_ctrl"][0].asInt(), 1);
    BusHeard();
  }
}

TEST_F(KeptDocuments, AResultIsNotChangedByOneThatIsAskedForFromWithinItsPublication) {
  Answers("BUS_GET_IVS_INFO", RecordBytes().PlateId(3).str());
  NestedHost host("ivs_result",
                  [this] { CloudSends("get_last_result", R"({"type":"get_last_result"})"); });
  adapter_->SignalPushMessage.connect(&host, &NestedHost::OnPush);
  for (unsigned id : {7U, 8U}) {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(id));
    RunPosted();
  }
  EXPECT_EQ(host.messages, 2);
  ClaimEverything();
}

TEST_F(KeptDocuments, AStatusIsNotChangedByOneThatIsAskedForFromWithinItsPublication) {
  NestedHost host("wl_check_status", [this] {
    AnswersNext("BUS_WHITE_LIST_INFO", R"({"body":{"filter_enable":2}})");
    AskForCheckStatus();
  });
  adapter_->SignalPushMessage.connect(&host, &NestedHost::OnPush);
  Answers("BUS_WHITE_LIST_INFO", R"({"body":{"filter_enable":1}})");
  AskForCheckStatus();
  AskForCheckStatus();
  EXPECT_EQ(host.messages, 2);
  ClaimEverything();
}

TEST_F(KeptDocuments, APictureIsNotChangedByOneThatIsAskedForFromWithinItsPublication) {
  Answers("ALG_REQUEST_MESSAGE", Picture("/now"));
  Answers("BUS_GET_IVS_INFO", Picture("/then"));
  for (const char* name : {"snapshot", "get_image_by_id"}) {
    const auto ask = [this, name] {
      CloudSends(name, R"({"type":")" + std::string(name) + R"(","body":{"id":5}})");
    };
    NestedHost host(name, ask);
    adapter_->SignalPushMessage.connect(&host, &NestedHost::OnPush);
    Console([&] {
      ask();
      ask();
    });
    EXPECT_EQ(host.messages, 2);
  }
  ClaimEverything();
}

}  // namespace
