// A desk that is captured and then played again: what the plug-in published there, it publishes in
// the replay. The captures of tests/replay are these: with CAPTURES_WRITE set they are written
// there (./dev record-captures).
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <mutex>

#include "platform/nats_link.h"
#include "rig_test.h"
#include "support/good_requests.h"

namespace {

using testing::HasSubstr;

class Captures : public RigTest {
 protected:
  Captures() {
    // The five seconds between two re-delivered records pass in 50 ms.
    rig_.more_environment["TARVEX_CLOCK_SCALE"] = "100";
  }

  std::string File(const std::string& name) const {
    return (rig_.directory.path() / name).string();
  }

  void Begin() {
    recording_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{RIG_CAMERA_CTL, "record", File("capture.jsonl")},
        File("capture.log"), rig_.Environment());
    ASSERT_TRUE(WaitUntil([this] { return Recorded("capturing to"); }));
  }

  void BeginWithTheDesk() {
    Begin();
    rig_.StartCamera();
    rig_.StartAgent({"--trace"});
  }

  bool Recorded(const std::string& text) const {
    return recording_->Output().find(text) != std::string::npos;
  }

  /// Whether there is such a text in the capture.
  bool Captured(const std::string& text) const {
    std::ifstream file(File("capture.jsonl"));
    const std::string captured(std::istreambuf_iterator<char>(file), {});
    return captured.find(text) != std::string::npos;
  }

  /// Ends the capture. @return what the plug-in does in a replay.
  std::string Played(const std::string& name) {
    EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; })) << "not all is confirmed";
    EXPECT_TRUE(recording_->Terminate());
    EXPECT_EQ(recording_->exit_code(), 0) << recording_->Output();
    EXPECT_FALSE(Recorded("left out")) << recording_->Output();
    std::filesystem::rename(File("capture.jsonl"), File(name + ".jsonl"));
    ChildProcess replay({ADAPTER_REPLAY, File(name + ".jsonl"), "--plugin", RIG_PLUGIN},
                        File(name + ".transcript"));
    EXPECT_TRUE(replay.WaitForExit());
    EXPECT_EQ(replay.exit_code(), 0) << replay.Output();
    if (getenv("CAPTURES_WRITE") != nullptr && !HasFailure()) {
      for (const char* kind : {".jsonl", ".transcript"}) {
        std::filesystem::copy_file(File(name + kind), RIG_CAPTURES "/" + name + kind,
                                   std::filesystem::copy_options::overwrite_existing);
      }
    }
    return replay.Output();
  }

  /// "NAME, tag TAG" of each publication in a replay.
  static std::vector<std::string> PublishedIn(const std::string& transcript) {
    std::vector<std::string> published;
    const std::string begin = "  publishes ";
    std::istringstream lines(transcript);
    for (std::string line; std::getline(lines, line);) {
      if (line.compare(0, begin.size(), begin) == 0) {
        published.push_back(line.substr(begin.size()));
      }
    }
    return published;
  }

  void Redeliver(int count) {
    rig_.Request("check_offline_record", R"({"enable":"push","max_count":100})");
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(rig_.AwaitMessage("ivs_result")["tag"].asInt(), 16);
    }
    rig_.AwaitMessage("offline_record");
  }

  /// A request whose body need not be UTF-8.
  void RequestRaw(const std::string& name, const std::string& payload) {
    rig_.cloud->Publish(rig_.Topic("request/" + name),
                        R"({"version":"1.0","payload":)" + payload + "}");
    EXPECT_TRUE(rig_.cloud->AwaitTopic(rig_.Topic("response/" + name)));
  }

  std::unique_ptr<ChildProcess> recording_;
};

TEST_F(Captures, OfEventsPublishWhatWasPublishedOnTheDesk) {
  std::mutex mutex;
  std::vector<std::string> published;
  std::vector<std::string> plates;
  const MqttClient listener(
      rig_.broker.port(), rig_.Topic("message/#"), [&](const MqttClient::Message& message) {
        const Json::Value document = ParseJson(message.payload);
        const std::lock_guard<std::mutex> lock(mutex);
        published.push_back(message.topic.substr(message.topic.rfind('/') + 1) + " " +
                            document["version"].asString() + ", tag " + document["tag"].asString());
        if (PlateResult(document).isObject()) {
          plates.push_back(PlateResult(document)["license"].asString());
        }
      });
  BeginWithTheDesk();
  rig_.Request("lanectrl_result_cfg",
               R"([{"event":"person_stay","enable":1},{"event":"vehicle_stay","enable":1}])");
  for (const char* plate : {"AB12345", "CD67890", "EF11111"}) {
    rig_.Ctl({"car", plate});
    AwaitPlate(plate);
  }
  rig_.Ctl({"lane", "person"});
  rig_.Ctl({"lane", "vehicle", "AB12345"});
  rig_.Ctl({"gpio-in", "1", "1"});
  rig_.Ctl({"gpio-in", "1", "0"});
  rig_.Ctl({"serial", "0", "hello"});
  rig_.Ctl({"rename", "Gate 2"});
  rig_.Ctl({"readdress", "10.1.2.3"});
  rig_.AwaitMessage("serial_data");
  rig_.Ctl({"car", "GH22222"});
  AwaitPlate("GH22222");
  const std::string transcript = Played("events");
  const auto expected = PublishedIn(transcript);
  WaitUntil([&] {
    const std::lock_guard<std::mutex> lock(mutex);
    return published.size() >= expected.size();
  });
  const std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ(published, expected);
  EXPECT_EQ(plates.size(), 4U);
  for (const std::string& plate : plates) {
    EXPECT_THAT(transcript, HasSubstr("\"license\" : \"" + plate + "\""));
  }
}

TEST_F(Captures, OfEveryRequestAskTheServicesAsOnTheDesk) {
  BeginWithTheDesk();
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  for (const GoodRequest& request : kGoodRequests) {
    if (std::string(request.name) != "reboot_dev") {  // the camera is away after it
      rig_.RequestWith(request.name, ParseJson(request.payload));
    }
  }
  rig_.Request("get_image_by_id", R"({"id":1})");
  rig_.Request("agent_rtsp_url", R"({"sn":"VCMATE0001"})");
  rig_.Request("agent_talkback_port", R"({"sn":"VCMATE0001","window_size":64})");
  rig_.Request("white_list_operator", R"({"operator_type":"delete","plate":"A"})");
  rig_.Request("wl_check_status", R"({"cmd":"get"})");
  rig_.AwaitMessage("offline_record");
  rig_.Request("reboot_dev");
  const std::string transcript = Played("requests");
  for (const GoodRequest& request : kGoodRequests) {
    EXPECT_THAT(transcript, HasSubstr(std::string(" request ") + request.name + " 1.0 "));
  }
  EXPECT_THAT(transcript, testing::Not(HasSubstr("something else was asked")));
}

TEST_F(Captures, OfAnOutageRedeliverWhatWasMissed) {
  BeginWithTheDesk();
  MissCars(3);
  BrokerComesBack();
  Redeliver(3);
  const std::vector<std::string> published = PublishedIn(Played("outage"));
  EXPECT_EQ(std::count(published.begin(), published.end(), "ivs_result 1.0, tag 16"), 3);
  EXPECT_EQ(published.back(), "offline_record 1.0, tag 17");
}

TEST_F(Captures, OfLostLinksKeepWhatTheLossDid) {
  BeginWithTheDesk();
  rig_.broker.Freeze();  // what is published now is never acknowledged
  rig_.Ctl({"car", "AB12345"});
  ASSERT_TRUE(WaitUntil([this] { return Captured("BUS_SRV_IVS_RESULT"); }));
  MissCars(0);
  rig_.Ctl({"rename", "Gate 3"});
  rig_.Ctl({"service", "BUS_GET_IVS_INFO", "down"});
  BrokerComesBack();
  rig_.Ctl({"service", "BUS_GET_IVS_INFO", "up"});
  rig_.Ctl({"car", "CD67890"});
  AwaitPlate("CD67890");
  Redeliver(1);
  const std::string transcript = Played("lost_links");
  EXPECT_THAT(transcript, HasSubstr(" link down\n"));
  EXPECT_THAT(transcript, HasSubstr("is not answered, as at "));
}

TEST_F(Captures, OfHostileInputKeepEveryByte) {
  BeginWithTheDesk();
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  for (const GoodRequest& request : kGoodRequests) {
    const std::string type = R"({"type":")" + std::string(request.name) + "\"";
    if (std::string(request.name) == "reboot_dev") {
      continue;
    }
    for (const std::string& payload :
         {std::string("null"), std::string(R"({"type":5})"), type + "}",
          type + R"(,"body":{"io":"x","value":1.5,"delay":-1e300,"id":9999999999,"gpio":[],)" +
              R"("serialData":[{"data":5},7],"enable":{},"operator_type":5,"cmd":"\u0000"}})",
          type + ",\"body\":\"\xff\xfe\"}",
          type + ",\"body\":" + std::string(50, '[') + std::string(50, ']') + "}"}) {
      RequestRaw(request.name, payload);
    }
  }
  const auto link = tarvex::NatsLink::Connect({"127.0.0.1", rig_.bus.port()}, "hostile");
  ASSERT_TRUE(WaitUntil([&] { return link->IsConnected(); }));
  for (const char* topic :
       {"BUS_SRV_IVS_RESULT", "BUS_SRV_LANECTRL_RESULT", "EVT_SRV_EXTERNAL_TRIGGER",
        "EVS_RS485_READ", "SYS_SRV_IP_CHANGED", "SS_DEV_NAME_CHANGED"}) {
    for (const std::string& body :
         {std::string(), std::string(551, '\xff'), std::string("no JSON"), std::string("[]"),
          std::string(R"({"body":5,"ip":[],"title":1,"results":5})"),
          std::string(
              R"({"results":[5,{"full_image":"x","small_image":{"small_image_id":"y"}}]})")}) {
      link->Publish(topic, body);
    }
  }
  link->Publish("BUS_SRV_IVS_RESULT", std::string(552, '\xff'));
  rig_.AwaitMessage("ivs_result");
  const std::string transcript = Played("hostile");
  EXPECT_THAT(transcript, HasSubstr(R"("body":"\xff\xfe")"));
  EXPECT_THAT(transcript, HasSubstr("BUS_SRV_IVS_RESULT, 551 bytes"));
}

TEST_F(Captures, BeginInTheMidstOfADesk) {
  rig_.StartCamera();
  rig_.StartAgent({"--trace"});
  Begin();
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  const std::string transcript = Played("midst");
  EXPECT_THAT(transcript, HasSubstr("link up, since before the capture"));
  EXPECT_THAT(PublishedIn(transcript), testing::Contains("ivs_result 1.0, tag 11"));
}

TEST_F(Captures, EndByThemselvesAfterSoManySeconds) {
  rig_.StartCamera();
  rig_.StartAgent({"--trace"});
  EXPECT_THAT(rig_.Ctl({"record", File("capture.jsonl"), "--seconds", "2"}), HasSubstr(" events"));
}

TEST_F(Captures, OfADeskThatTellsNothingFailAndSayWhy) {
  rig_.StartCamera();
  rig_.StartAgent();
  EXPECT_THROW(rig_.Ctl({"record", File("capture.jsonl"), "--seconds", "1"}), std::runtime_error);
}

}  // namespace
