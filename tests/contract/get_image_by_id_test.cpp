#include "adapter_test.h"
#include "tarvex/base64.h"

namespace {

class GetImageById : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Ask(const std::string& body = R"({"id":17})", const std::string& version = "1.0") {
    return CloudSends("get_image_by_id", R"({"type":"get_image_by_id","body":)" + body + "}",
                      version);
  }
  void AnswersWithAPath() {
    Answers("BUS_GET_IVS_INFO", R"({"body":{"img_path":"/data/17.jpg"}})");
  }
  static std::string Request(const std::string& id) {
    return R"(BUS_GET_IVS_INFO {"body":{"plateid":)" + id +
           R"(},"type":"get_img_path_by_id"} timeout=3000)";
  }
  /// The publication of a picture to which the image function gave `url`.
  static std::string Picture(const std::string& url) {
    return R"({"imgPath":")" + tarvex::Base64::Encode(url) + R"(","state_code":200})";
  }
};

TEST_F(GetImageById, PublishesTheReferenceOfThePicture) {
  AnswersWithAPath();
  EXPECT_TRUE(Ask());
  EXPECT_EQ(BusHeard(), Request("17"));
  EXPECT_EQ(image_calls_, std::vector<std::string>{"/data/17.jpg 20240131235959_SN0001_0.jpg"});
  EXPECT_EQ(Published(), "get_image_by_id 21 " + Picture("url:20240131235959_SN0001_0.jpg"));
}

TEST_F(GetImageById, LogsTheIdAndThePublication) {
  AnswersWithAPath();
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(LoggedBy("DoCmdGetImageById", 6, "DoCmdGetImageById:17"), 1U);
  EXPECT_EQ(LoggedBy("DoCmdGetImageById", 7,
                     "DoCmdGetImageById:" + Picture("url:20240131235959_SN0001_0.jpg") + " "),
            1U);
}

TEST_F(GetImageById, PadsTheTimeInTheNameWithZeros) {
  AnswersWithAPath();
  platform().local_time = {987, 2, 3, 4, 5, 6};
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(image_calls_, std::vector<std::string>{"/data/17.jpg 09870203040506_SN0001_0.jpg"});
}

TEST_F(GetImageById, CutsAnOverlongTimeAfterTwentyTwoCharacters) {
  AnswersWithAPath();
  platform().local_time = {123456789, 12345, 67890, 12345, 5, 6};
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(image_calls_,
            std::vector<std::string>{"/data/17.jpg 1234567891234567890123_SN0001_0.jpg"});
}

TEST_F(GetImageById, WritesANegativeTimeAsItStands) {
  AnswersWithAPath();
  platform().local_time = {-5, -2, 30, 0, -10, 6};
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(image_calls_, std::vector<std::string>{"/data/17.jpg -005-23000-1006_SN0001_0.jpg"});
}

TEST_F(GetImageById, PassesANegativeIdOn) {
  AnswersWithAPath();
  EXPECT_TRUE(Ask(R"({"id":-3})"));
  EXPECT_EQ(BusHeard(), Request("-3"));
  EXPECT_EQ(Logged(6, "DoCmdGetImageById:-3"), 1U);
  Published();
}

TEST_F(GetImageById, NumbersSuccessesOnly) {
  AnswersWithAPath();
  EXPECT_TRUE(Ask());
  AnswersNext("BUS_GET_IVS_INFO", "{}");
  EXPECT_FALSE(Ask());
  EXPECT_TRUE(Ask());
  EXPECT_EQ(image_calls_, (std::vector<std::string>{"/data/17.jpg 20240131235959_SN0001_0.jpg",
                                                    "/data/17.jpg 20240131235959_SN0001_1.jpg"}));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(BusHeard(), Request("17"));
  }
  Published();
  Published();
}

TEST_F(GetImageById, PublishesAnEmptyReferenceToo) {
  AnswersWithAPath();
  Destroy();
  image_func_ = [](const std::string&, const std::string&) { return std::string(); };
  Start();
  EXPECT_TRUE(Ask());
  BusHeard();
  EXPECT_EQ(Published(), R"(get_image_by_id 21 {"imgPath":"","state_code":200})");
}

TEST_F(GetImageById, SendsNothingUnlessAnIntegerIsAskedFor) {
  for (const char* body : {R"({"id":"5"})", R"({"id":null})", R"({"id":1.5})", R"({"id":true})",
                           R"({"id":[5]})", R"({"id":4294967295})", "{}", "null", "[]", "5"}) {
    ForgetLogs();
    EXPECT_FALSE(Ask(body)) << body;
    EXPECT_EQ(BusHeard(), "nothing");
    EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
  }
  EXPECT_FALSE(CloudSends("get_image_by_id", R"({"type":"get_image_by_id"})"));
}

TEST_F(GetImageById, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("get_image_by_id", "null"));
  EXPECT_EQ(LoggedBy("DoCmdGetImageById", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("get_image_by_id", R"({"body":{"id":1}})"));
  EXPECT_EQ(LoggedBy("DoCmdGetImageById", 4, "payload parameter is incomplete and type is missing"),
            1U);
}

TEST_F(GetImageById, RefusesAnotherTypeWithoutALine) {
  EXPECT_FALSE(CloudSends("get_image_by_id", R"({"type":"snapshot","body":{"id":1}})"));
  EXPECT_FALSE(CloudSends("get_image_by_id", R"({"type":5,"body":{"id":1}})"));
  EXPECT_EQ(LogLines().size(), 2U);
}

TEST_F(GetImageById, LogsTheIdBeforeItRefusesAnotherVersion) {
  EXPECT_FALSE(Ask(R"({"id":17})", "1.1"));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines(6), std::vector<std::string>{"DoCmdGetImageById:17"});
}

TEST_F(GetImageById, GoesByTheReplyNotByTheResultOfTheSend) {
  for (const int result : {0, -1}) {
    Answers("BUS_GET_IVS_INFO", R"({"body":{"img_path":"/a"}})", result);
    EXPECT_TRUE(Ask());
    BusHeard();
    EXPECT_EQ(PublishedHead(), "get_image_by_id 21");
    PublishedPayload();
  }
}

TEST_F(GetImageById, RefusesAReplyWithoutAPathWithoutALine) {
  for (const char* reply : {"", "no json", "{}", "[]", "5", R"({"body":{}})", R"({"body":[]})",
                            R"({"body":{"img_path":7}})", R"({"body":{"img_path":null}})"}) {
    ForgetLogs();
    Answers("BUS_GET_IVS_INFO", reply);
    EXPECT_FALSE(Ask()) << reply;
    EXPECT_EQ(BusHeard(), Request("17"));
    EXPECT_EQ(LogLines().size(), 2U);  // the request's own, the id
  }
  EXPECT_TRUE(image_calls_.empty());
}

TEST_F(GetImageById, TakesAnEmptyPath) {
  Answers("BUS_GET_IVS_INFO", R"({"body":{"img_path":""}})");
  EXPECT_TRUE(Ask());
  BusHeard();
  EXPECT_EQ(image_calls_, std::vector<std::string>{" 20240131235959_SN0001_0.jpg"});
  Published();
}

TEST_F(GetImageById, WithoutAnImageFunctionFailsAfterTheRequest) {
  Destroy();
  image_func_ = nullptr;
  Start();
  AnswersWithAPath();
  EXPECT_FALSE(Ask());
  EXPECT_EQ(BusHeard(), Request("17"));
  EXPECT_EQ(LogLines().size(), 2U);
}

TEST_F(GetImageById, LeavesTheResponseAsItIs) {
  AnswersWithAPath();
  response_["kept"] = 1;
  Ask();
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class GetImageByIdWithoutBus : public AdapterTest {};

TEST_F(GetImageByIdWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("get_image_by_id", R"({"type":"get_image_by_id","body":{"id":1}})"));
}

}  // namespace
