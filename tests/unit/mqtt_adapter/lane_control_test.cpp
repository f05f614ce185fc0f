// Lane-control members that no bus message reaches.
#include <cstring>

#include "adapter_fixture.h"

namespace {

class LaneControl : public AdapterFixture {
 protected:
  static Json::Value Message() {
    return Parsed(R"({"uid":42,"device_info":{"chn_id":1},)"
                  R"("full_image":[{"full_image_id":7,"file_name":"/a.jpg"}],)"
                  R"("results":[{"result_id":5,"event_type":129}]})");
  }
  static std::string Payload(const std::string& picture) {
    return R"({"device_info":{"chn_id":1,"soft_ver":"V1.2.3"},"event_type":129,"isoffline":0,)"
           R"("plateid":42,"result":[{"full_image":{"full_image_id":7)" +
           picture + R"(}}],"result_id":5,"time":"local 1700000000"})";
  }
};

TEST_F(LaneControl, IsPublishedAsTheLastResultOnDemand) {
  Start(false);
  Json::Value message = Message();
  EXPECT_EQ(adapter_.SendLanectrlResultEvent(message), 200);
  EXPECT_EQ(Published(), "get_last_result 26 " + Payload(""));
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(LaneControl, AsTheLastResultHasItsPicturesToo) {
  Start();
  Json::Value message = Message();
  adapter_.SendLanectrlResultEvent(message);
  EXPECT_EQ(Published(), "get_last_result 26 " + Payload(R"(,"full_image_path":"dXJs")"));
  ASSERT_EQ(image_calls_.size(), 1U);
  EXPECT_EQ(image_calls_[0].substr(0, 22), "7 1700000000_SN0001_5_");
}

TEST_F(LaneControl, MarkedAsStoredChangesItsTagOnly) {
  Start(false);
  Json::Value message = Message();
  EXPECT_EQ(adapter_.OnLanectrlResultEvent(message, 1), 200);
  EXPECT_EQ(Published(), "lanectrl_result 16 " + Payload(""));
  EXPECT_EQ(adapter_.OnLanectrlResultEvent(message, 0), 200);
  EXPECT_EQ(Published(), "lanectrl_result 12 " + Payload(""));
}

TEST_F(LaneControl, LeavesTheMessageAsItIs) {
  Start();
  Json::Value message = Message();
  adapter_.OnLanectrlResultEvent(message, 0);
  EXPECT_EQ(message, Message());
  Published();
}

TEST_F(LaneControl, PacksNoPicturesWithoutAnImageFunction) {
  Start(false);
  Json::Value result = Parsed(R"([{"full_image":{"full_image_id":7}}])");
  Json::Value snapshot;
  snapshot["result"] = result;
  EXPECT_EQ(adapter_.PackLanectrlImgInfo(snapshot, result), 200);
  EXPECT_EQ(Compact(result), R"([{"full_image":{"full_image_id":7}}])");
}

TEST_F(LaneControl, PacksThePicturesOfTheSnapshotIntoTheResult) {
  Start();
  Json::Value result = Parsed("[{},{}]");
  EXPECT_EQ(adapter_.PackLanectrlImgInfo(
                Parsed(R"({"result":[{},{"small_image":{"small_image_id":3}}]})"), result),
            200);
  EXPECT_EQ(Compact(result), R"([{},{"small_image":{"small_image_path":"dXJs"}}])");
}

/// An event record, written at offsets.
class LaneEvent : public AdapterFixture {
 public:
  LaneEvent& Text(size_t offset, const std::string& text) {
    bytes_.replace(offset, text.size(), text);
    return *this;
  }
  LaneEvent& Word(size_t offset, int32_t value) {
    memcpy(&bytes_[offset], &value, sizeof(value));
    return *this;
  }
  LaneEvent& Byte(size_t offset, int value) {
    bytes_[offset] = static_cast<char>(value);
    return *this;
  }
  Json::Value AsJson() {
    qex::IVS_EVENT_PARAM event;
    EXPECT_EQ(sizeof(event), bytes_.size());
    memcpy(&event, bytes_.data(), sizeof(event));
    Json::Value out;
    adapter_.IvsStruct2Json(&event, out);
    return out;
  }
  std::string bytes_ = std::string(188, '\0');
};

TEST_F(LaneEvent, BecomesTheBusMessage) {
  fake::ThePlatform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.9"})";
  Start();
  Text(0, "AB12CD").Text(16, "blue").Text(48, "small").Word(112, 1).Word(116, 93);
  Word(120, -1).Word(124, 128).Word(128, 1280).Word(132, 1320).Word(136, 1360).Word(140, 1400);
  Word(144, 1440).Word(148, 1480).Word(152, 99).Word(156, -156);
  Word(160, 1600).Word(164, -1640).Word(168, 1680).Word(172, 1720);
  Byte(176, 5).Byte(177, 4).Byte(178, 3).Byte(179, 2).Byte(180, 1).Word(184, 2024);
  EXPECT_EQ(Compact(AsJson()),
            R"({"cmd":"common_alarm_result",)"
            R"("device_info":{"alg_chn":1440,"chn_id":1480,"dev_ip":"10.0.0.9","dev_port":80,)"
            R"("rule_id":-156},)"
            R"("full_image":[{"fe_crop_info":{"height":1720,"left":1600,"top":-1640,"width":1680},)"
            R"("file_name":"/nfsroot/test_big.jpeg","full_image_id":1280,"image_type":1320}],)"
            R"("module":"TCP_BUS_REQUEST",)"
            R"("results":[{"event_type":128,"lane_ctrl_prop":{"person_stay_result":)"
            R"({"alarm_state":1}},"plate_result":{"color_type":"blue","confidence":93,)"
            R"("license":"AB12CD","plate_true_width":1,"type":"small"},"result_id":-156,)"
            R"("time":"2024- 1- 2  3: 4: 5","type":"common_alarm_lane_control"}],)"
            R"("small_image":[{"file_name":"/nfsroot/test_small.jpeg","image_type":1360,)"
            R"("small_image_id":1400}],"type":"common_alarm_result","uid":4294967295})");
}

TEST_F(LaneEvent, OfAVehicleHasNoPersonInIt) {
  Start();
  const Json::Value result = Word(124, 129).AsJson()["results"][0];
  EXPECT_EQ(Compact(result["lane_ctrl_prop"]), R"({"car_stay_result":{"alarm_state":1}})");
}

TEST_F(LaneEvent, OfAnotherKindHasNeither) {
  Start();
  for (const int kind : {0, 127, 130, -128}) {
    const Json::Value result = Word(124, kind).AsJson()["results"][0];
    EXPECT_FALSE(result.isMember("lane_ctrl_prop")) << kind;
    EXPECT_EQ(result["event_type"].asInt(), kind);
  }
}

TEST_F(LaneEvent, WithoutAPlateWidthHasNoPlate) {
  Start();
  for (const int width : {0, -1}) {
    EXPECT_FALSE(Word(112, width).AsJson()["results"][0].isMember("plate_result")) << width;
  }
}

TEST_F(LaneEvent, PadsItsTimeWithBlanksOnly) {
  Start();
  Byte(176, 255).Byte(177, 59).Byte(178, 23).Byte(179, 31).Byte(180, 12).Word(184, 7);
  EXPECT_EQ(AsJson()["results"][0]["time"], "   7-12-31 23:59:255");
}

TEST_F(LaneEvent, PassesTextsOnRawAndToTheRecordsEndAtTheMost) {
  Start();
  bytes_.assign(188, 'A');
  const Json::Value plate = AsJson()["results"][0]["plate_result"];
  EXPECT_EQ(plate["license"].asString(), std::string(188, 'A'));
  EXPECT_EQ(plate["color_type"].asString(), std::string(172, 'A'));
  EXPECT_EQ(plate["type"].asString(), std::string(140, 'A'));
}

}  // namespace
