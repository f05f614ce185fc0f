// Lane-control results: the bus message reshaped into "lanectrl_result".
#include "adapter_test.h"
#include "tarvex/base64.h"

namespace {

class LanectrlResult : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  /// Has the message arrive; what was published for it.
  Json::Value Publication(const std::string& message) {
    Arrive(message);
    EXPECT_EQ(PublishedHead(), "lanectrl_result 12") << message;
    return PublishedPayload();
  }
  void Arrive(const std::string& message) {
    console_ = Console([&] { Deliver("BUS_SRV_LANECTRL_RESULT", message); });
  }
  void StartWithoutImageFunction() {
    Destroy();
    image_func_ = nullptr;
    Start();
  }
  const std::string kMessage =
      R"({"uid":42,"device_info":{"chn_id":1},"extra":9,)"
      R"("full_image":[{"full_image_id":7,"file_name":"/a.jpg","image_type":1}],)"
      R"("small_image":[{"small_image_id":8,"file_name":"/b.jpg","image_type":2}],)"
      R"("results":[{"result_id":5,"event_type":129,"plate_result":{"license":"AB"},"time":"t"}]})";
  std::string console_;
};

TEST_F(LanectrlResult, IsReshapedWhole) {
  EXPECT_EQ(Compact(Publication(kMessage)),
            R"({"device_info":{"chn_id":1,"soft_ver":"V1.2.3"},"event_type":129,"isoffline":0,)"
            R"("plateid":42,"result":[{"full_image":{"full_image_id":7,"full_image_path":")" +
                tarvex::Base64::Encode("url:1700000000_SN0001_5_0_full.jpg") +
                R"(","image_type":1},"plate_result":{"license":"AB"},)"
                R"("small_image":{"image_type":2,"small_image_id":8,"small_image_path":")" +
                tarvex::Base64::Encode("url:1700000000_SN0001_5_1_clip.jpg") +
                R"("}}],"result_id":5,"time":"local 1700000000"})");
}

TEST_F(LanectrlResult, AsksForPicturesByTheirNumber) {
  Publication(kMessage);
  EXPECT_EQ(image_calls_, (std::vector<std::string>{"7 1700000000_SN0001_5_0_full.jpg",
                                                    "8 1700000000_SN0001_5_1_clip.jpg"}));
}

TEST_F(LanectrlResult, PrintsThePicturesNumbers) {
  Arrive(kMessage);
  PublishedPayload();
  EXPECT_EQ(console_, "decode_path:big:7\r\ndecode_path:small:8\r\n");
}

TEST_F(LanectrlResult, IsLoggedOnArrivalAndInStyledForm) {
  const std::string styled = Publication(kMessage).toStyledString();
  EXPECT_EQ(LogLines(6), (std::vector<std::string>{"lanectrl_result start :" + kMessage + ".",
                                                   "lanectrl_result:" + styled + "."}));
  EXPECT_EQ(LoggedBy("OnLanectrlResultEvent", 6, "lanectrl_result:" + styled + "."), 1U);
}

TEST_F(LanectrlResult, CountsPicturesFromOneResultToTheNext) {
  Publication(kMessage);
  image_calls_.clear();
  Publication(kMessage);
  EXPECT_EQ(image_calls_, (std::vector<std::string>{"7 1700000000_SN0001_5_2_full.jpg",
                                                    "8 1700000000_SN0001_5_3_clip.jpg"}));
}

TEST_F(LanectrlResult, CountsItsPicturesApartFromThoseOfPlates) {
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  PublishedPayload();
  image_calls_.clear();
  Publication(kMessage);
  EXPECT_EQ(image_calls_.front(), "7 1700000000_SN0001_5_0_full.jpg");
}

TEST_F(LanectrlResult, TakesTheTimeOfPublication) {
  platform().now_s = 1800000000;
  EXPECT_EQ(Publication(kMessage)["time"], "local 1800000000");
  EXPECT_EQ(image_calls_.front(), "7 1800000000_SN0001_5_0_full.jpg");
}

TEST_F(LanectrlResult, WithoutAnImageFunctionHasNoPathsAndNoFileNames) {
  StartWithoutImageFunction();
  EXPECT_EQ(Compact(Publication(kMessage)["result"]),
            R"([{"full_image":{"full_image_id":7,"image_type":1},"plate_result":{"license":"AB"},)"
            R"("small_image":{"image_type":2,"small_image_id":8}}])");
  EXPECT_EQ(console_, "");
}

TEST_F(LanectrlResult, HasOneEntryPerFullImage) {
  StartWithoutImageFunction();
  const Json::Value result = Publication(R"({"full_image":[{"a":1},{"a":2}],)"
                                         R"("small_image":[{"b":1}],)"
                                         R"("results":[{},{"plate_result":"p"},{}]})")["result"];
  EXPECT_EQ(Compact(result), R"([{"full_image":{"a":1},"small_image":{"b":1}},)"
                             R"({"full_image":{"a":2},"plate_result":"p"}])");
}

TEST_F(LanectrlResult, DropsSmallImagesAndResultsBeyondTheFullImages) {
  StartWithoutImageFunction();
  const Json::Value result =
      Publication(R"({"full_image":[{}],"small_image":[{"b":1},{"b":2}],)"
                  R"("results":[{"plate_result":1},{"plate_result":2}]})")["result"];
  EXPECT_EQ(Compact(result), R"([{"full_image":{},"plate_result":1,"small_image":{"b":1}}])");
}

TEST_F(LanectrlResult, NumbersThePicturesOfSeveralEntriesInTurn) {
  Publication(R"({"full_image":[{"full_image_id":1},{"full_image_id":2}],)"
              R"("small_image":[{"small_image_id":3},{"small_image_id":4}],)"
              R"("results":[{"result_id":9},{"result_id":8}]})");
  EXPECT_EQ(image_calls_,
            (std::vector<std::string>{
                "1 1700000000_SN0001_9_0_full.jpg", "3 1700000000_SN0001_9_1_clip.jpg",
                "2 1700000000_SN0001_9_2_full.jpg", "4 1700000000_SN0001_9_3_clip.jpg"}));
}

TEST_F(LanectrlResult, HasANullResultWithoutFullImages) {
  for (const char* message : {R"({"results":[]})", R"({"results":[{}],"full_image":[]})",
                              R"({"results":{},"full_image":{}})",
                              R"({"results":[],"small_image":[{"small_image_id":1}]})"}) {
    const Json::Value payload = Publication(message);
    EXPECT_TRUE(payload.isMember("result"));
    EXPECT_TRUE(payload["result"].isNull()) << message;
  }
  EXPECT_TRUE(image_calls_.empty());
}

TEST_F(LanectrlResult, LeavesOutWhatTheMessageLacks) {
  EXPECT_EQ(Compact(Publication(R"({"results":[]})")),
            R"({"device_info":{"soft_ver":"V1.2.3"},"isoffline":0,"result":null,)"
            R"("time":"local 1700000000"})");
}

TEST_F(LanectrlResult, TakesResultAndEventFromTheFirstResultOnly) {
  const Json::Value payload = Publication(R"({"results":[{},{"result_id":5,"event_type":128}]})");
  EXPECT_FALSE(payload.isMember("result_id"));
  EXPECT_FALSE(payload.isMember("event_type"));
}

TEST_F(LanectrlResult, ReadsResultAndEventAsIntegers) {
  const Json::Value payload = Publication(R"({"results":[{"result_id":5.9,"event_type":null}]})");
  EXPECT_EQ(Compact(payload["result_id"]), "5");
  EXPECT_EQ(Compact(payload["event_type"]), "0");
}

TEST_F(LanectrlResult, CopiesTheUidWhateverItIs) {
  for (const char* uid : {"4294967295", "\"x\"", "null", "[1]", "-1"}) {
    const Json::Value payload = Publication(std::string(R"({"results":[],"uid":)") + uid + "}");
    ASSERT_TRUE(payload.isMember("plateid"));
    EXPECT_EQ(Compact(payload["plateid"]), uid);
  }
}

TEST_F(LanectrlResult, NamesPicturesWithZeroWithoutAResultId) {
  Publication(R"({"results":[],"full_image":[{"full_image_id":7}]})");
  EXPECT_EQ(image_calls_, std::vector<std::string>{"7 1700000000_SN0001_0_0_full.jpg"});
}

TEST_F(LanectrlResult, AsksForPictureZeroWhereAFullImageHasNoNumber) {
  Publication(R"({"results":[],"full_image":[{}]})");
  EXPECT_EQ(image_calls_, std::vector<std::string>{"0 1700000000_SN0001_0_0_full.jpg"});
}

TEST_F(LanectrlResult, UsesUpANumberForASmallImageWithoutAnInteger) {
  for (const char* id : {"\"8\"", "null", "1.5", "4294967295"}) {
    Destroy();
    Start();
    image_calls_.clear();
    const Json::Value result = Publication(
        std::string(R"({"results":[],"full_image":[{"full_image_id":1},{"full_image_id":2}],)"
                    R"("small_image":[{"small_image_id":)") +
        id + "}]}")["result"];
    EXPECT_FALSE(result[0]["small_image"].isMember("small_image_path")) << id;
    EXPECT_EQ(image_calls_, (std::vector<std::string>{"1 1700000000_SN0001_0_0_full.jpg",
                                                      "2 1700000000_SN0001_0_2_full.jpg"}));
    EXPECT_EQ(console_, "decode_path:big:1\r\ndecode_path:big:2\r\n");
  }
}

TEST_F(LanectrlResult, ReplacesTheVersionThatTheDeviceStated) {
  const Json::Value payload =
      Publication(R"({"results":[],"device_info":{"soft_ver":"old","a":1}})");
  EXPECT_EQ(Compact(payload["device_info"]), R"({"a":1,"soft_ver":"V1.2.3"})");
}

TEST_F(LanectrlResult, HasAnEmptyVersionWhereTheDeviceHasNone) {
  platform().has_chw_info = false;
  EXPECT_EQ(Publication(R"({"results":[]})")["device_info"]["soft_ver"], "");
}

TEST_F(LanectrlResult, OfAShapeThatCannotBeReadIsDroppedWithOneLine) {
  for (const char* message :
       {R"({"results":[{"result_id":"x"}]})", R"({"results":[{"event_type":[]}]})",
        R"({"results":[],"device_info":5})"}) {
    ForgetLogs();
    Arrive(message);
    EXPECT_EQ(Published(), "nothing") << message;
    EXPECT_EQ(LogLines(3).size(), 1U) << message;
  }
  Publication(kMessage);
}

TEST_F(LanectrlResult, LosesAPictureOfAnotherShapeButNothingElse) {
  for (const char* image : {"5", "true", R"("/mnt/a.jpg")", R"([{"file_name":"/mnt/a.jpg"}])"}) {
    ForgetLogs();
    const Json::Value payload =
        Publication(std::string(R"({"uid":42,"results":[{"plate_result":"p"}],"full_image":[)") +
                    image + R"(,{"full_image_id":2}],"small_image":[{"a":1},)" + image + "]}");
    EXPECT_EQ(payload["plateid"].asInt(), 42);
    EXPECT_EQ(Compact(payload["result"][0]), R"({"plate_result":"p","small_image":{"a":1}})");
    EXPECT_EQ(payload["result"][1].getMemberNames(), std::vector<std::string>{"full_image"});
    EXPECT_EQ(LogLines(4), (std::vector<std::string>{"full_image left out, not json object",
                                                     "small_image left out, not json object"}));
  }
}

TEST_F(LanectrlResult, HasAnEmptyEntryWhereNothingButTheFullImageWasAndThatIsOfAnotherShape) {
  EXPECT_EQ(Compact(Publication(R"({"results":[],"full_image":[5]})")["result"]), "[{}]");
}

TEST_F(LanectrlResult, LeavesAFullImageWithoutAPathWhereItsNumberIsNone) {
  for (const char* id : {"\"7\"", "[]", "{}", "4294967295", "1e300"}) {
    Destroy();
    Start();
    image_calls_.clear();
    const Json::Value result =
        Publication(std::string(R"({"results":[],"full_image":[{"full_image_id":)") + id +
                    R"(},{"full_image_id":2}],"small_image":[{"small_image_id":8}]})")["result"];
    EXPECT_FALSE(result[0]["full_image"].isMember("full_image_path")) << id;
    EXPECT_EQ(image_calls_, (std::vector<std::string>{"8 1700000000_SN0001_0_0_clip.jpg",
                                                      "2 1700000000_SN0001_0_1_full.jpg"}));
    EXPECT_EQ(LogLines(4).size(), 1U);
  }
}

TEST_F(LanectrlResult, ReadsAFullImagesNumberAsAnInteger) {
  Publication(R"({"results":[],"full_image":[{"full_image_id":7.9},{"full_image_id":true},null]})");
  EXPECT_EQ(image_calls_, (std::vector<std::string>{"7 1700000000_SN0001_0_0_full.jpg",
                                                    "1 1700000000_SN0001_0_1_full.jpg",
                                                    "0 1700000000_SN0001_0_2_full.jpg"}));
}

TEST_F(LanectrlResult, IsNotWaitedForByTheQueueOfResults) {
  Publication(kMessage);
  adapter_->OnMessagePublished(12);
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), "nothing");
}

}  // namespace
