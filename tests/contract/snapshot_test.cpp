#include <dlfcn.h>

#include "adapter_test.h"
#include "tarvex/base64.h"

namespace {

class Snapshot : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  bool Take(const std::string& version = "1.0") {
    bool done = false;
    console_ = Console([&] { done = CloudSends("snapshot", R"({"type":"snapshot"})", version); });
    return done;
  }
  static std::string Picture(const std::string& url) {
    return R"({"imageformat":"jpg","imgPath":")" + tarvex::Base64::Encode(url) +
           R"(","state_code":200})";
  }
  const std::string kReply = R"({"body":{"img_path":"/pictures/now.jpg"},"x":1})";
  const std::string kRequest = R"(ALG_REQUEST_MESSAGE {"type":"AV_SRV_GET_SNAPSHOT"} timeout=3000)";
  std::string console_;
};

TEST_F(Snapshot, PublishesTheReferenceOfThePicture) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  EXPECT_TRUE(Take());
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(image_calls_,
            std::vector<std::string>{"/pictures/now.jpg 20240131235959_SN0001_0.jpg"});
  EXPECT_EQ(Published(), "snapshot 15 " + Picture("url:20240131235959_SN0001_0.jpg"));
}

TEST_F(Snapshot, LogsTheWholeReplyAndPrintsThePublication) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  Take();
  BusHeard();
  Published();
  EXPECT_EQ(LogLines(6), std::vector<std::string>{"image_path:" + kReply});
  EXPECT_EQ(LoggedBy("DoCmdSnapshot", 6, "image_path:" + kReply), 1U);
  EXPECT_EQ(LogLines(7).size(), 1U);  // the request's own line
  EXPECT_EQ(console_, "SnapshotPushData:" + Picture("url:20240131235959_SN0001_0.jpg") + "\n");
}

TEST_F(Snapshot, IsNumberedApartFromPicturesById) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  Answers("BUS_GET_IVS_INFO", R"({"body":{"img_path":"/old"}})");
  Take();
  CloudSends("get_image_by_id", R"({"type":"get_image_by_id","body":{"id":1}})");
  Take();
  EXPECT_EQ(image_calls_,
            (std::vector<std::string>{"/pictures/now.jpg 20240131235959_SN0001_0.jpg",
                                      "/old 20240131235959_SN0001_0.jpg",
                                      "/pictures/now.jpg 20240131235959_SN0001_1.jpg"}));
  for (int i = 0; i < 3; ++i) {
    BusHeard();
    Published();
  }
}

TEST_F(Snapshot, IsNumberedApartFromThePicturesOfResults) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  Console([this] { Deliver("BUS_SRV_LANECTRL_RESULT", R"({"results":[],"full_image":[{}]})"); });
  PublishedPayload();
  PublishedPayload();
  image_calls_.clear();
  Take();
  BusHeard();
  Published();
  EXPECT_EQ(image_calls_,
            std::vector<std::string>{"/pictures/now.jpg 20240131235959_SN0001_0.jpg"});
}

TEST_F(Snapshot, KeepsCountingWhileTheLibraryIsLoaded) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  Take();
  BusHeard();
  Published();
  void* kept = dlopen(LibraryFile(), RTLD_NOW);
  Destroy();
  Start();
  dlclose(kept);
  Take();
  BusHeard();
  Published();
  EXPECT_EQ(image_calls_.back(), "/pictures/now.jpg 20240131235959_SN0001_1.jpg");
}

TEST_F(Snapshot, ARequestThatFailsIsLogged) {
  for (const int result : {0, -1}) {
    ForgetLogs();
    Answers("ALG_REQUEST_MESSAGE", kReply, result);
    EXPECT_FALSE(Take());
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(LogLines(3),
              std::vector<std::string>{R"(send dp failed:{"type":"AV_SRV_GET_SNAPSHOT"})"});
    EXPECT_EQ(LoggedBy("DoCmdSnapshot", 3, R"(send dp failed:{"type":"AV_SRV_GET_SNAPSHOT"})"), 1U);
  }
}

TEST_F(Snapshot, RefusesAReplyWithoutAPathWithoutALine) {
  for (const char* reply : {"", "no json", "{}", "[]", "5", R"({"body":{}})", R"({"body":[]})",
                            R"({"body":{"img_path":7}})", R"({"body":{"img_path":null}})"}) {
    ForgetLogs();
    Answers("ALG_REQUEST_MESSAGE", reply);
    EXPECT_FALSE(Take()) << reply;
    EXPECT_EQ(BusHeard(), kRequest);
    EXPECT_EQ(LogLines().size(), 1U);
    EXPECT_EQ(console_, "");
  }
  EXPECT_TRUE(image_calls_.empty());
}

TEST_F(Snapshot, NumbersSuccessesOnly) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  AnswersNext("ALG_REQUEST_MESSAGE", "{}");
  EXPECT_FALSE(Take());
  EXPECT_TRUE(Take());
  EXPECT_EQ(image_calls_,
            std::vector<std::string>{"/pictures/now.jpg 20240131235959_SN0001_0.jpg"});
  BusHeard();
  BusHeard();
  Published();
}

TEST_F(Snapshot, SaysUnderItsOwnNameWhatIsWrongWithThePayload) {
  EXPECT_FALSE(CloudSends("snapshot", "null"));
  EXPECT_EQ(LoggedBy("DoCmdSnapshot", 4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("snapshot", "{}"));
  EXPECT_EQ(LoggedBy("DoCmdSnapshot", 4, "payload parameter is incomplete and type is missing"),
            1U);
}

TEST_F(Snapshot, RefusesAnotherTypeOrVersionWithoutALine) {
  EXPECT_FALSE(CloudSends("snapshot", R"({"type":"snapshots"})"));
  EXPECT_FALSE(CloudSends("snapshot", R"({"type":5})"));
  EXPECT_FALSE(Take("1.1"));
  EXPECT_FALSE(Take(""));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LogLines().size(), 4U);
}

TEST_F(Snapshot, WithoutAnImageFunctionFailsAfterLoggingTheReply) {
  Destroy();
  image_func_ = nullptr;
  Start();
  Answers("ALG_REQUEST_MESSAGE", kReply);
  EXPECT_FALSE(Take());
  EXPECT_EQ(BusHeard(), kRequest);
  EXPECT_EQ(Logged(6, "image_path:" + kReply), 1U);
  EXPECT_EQ(console_, "");
}

TEST_F(Snapshot, LeavesTheResponseAsItIs) {
  Answers("ALG_REQUEST_MESSAGE", kReply);
  response_["kept"] = 1;
  Take();
  BusHeard();
  Published();
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

class SnapshotWithoutBus : public AdapterTest {};

TEST_F(SnapshotWithoutBus, IsRefused) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("snapshot", R"({"type":"snapshot"})"));
}

}  // namespace
