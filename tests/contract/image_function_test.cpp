// An image function that leads back into the adapter, or throws.
#include <stdexcept>

#include "adapter_test.h"
#include "offline_fixture.h"
#include "tarvex/base64.h"

namespace {

class ImageFunction : public OfflineTest {
 protected:
  void SetUp() override {
    image_func_ = [this](const std::string& source, const std::string& name) {
      image_calls_.push_back(source + " " + name);
      const std::function<void()> action = std::move(during_the_next_call_);
      during_the_next_call_ = nullptr;
      if (action) {
        action();
      }
      return "url:" + name;
    };
    Start();
  }
  static RecordBytes Record() {
    return RecordBytes().PlateId(7).Word(64, 1600000000).Text(296, "/full").Text(424, "/clip");
  }
  void ResultArrives() {
    Deliver("BUS_SRV_IVS_RESULT", Record());
    RunPosted();
  }
  /// Publishes a stored result; its two requests are claimed.
  void StoredResultIsSent() {
    StoreCounts(1);
    AnswersNext("BUS_GET_IVS_INFO", Record().str() + "tail");
    Push(1);
    RunPosted();
  }
  void ClaimRequests(int count) {
    for (int i = 0; i < count; ++i) {
      EXPECT_NE(BusHeard(), "nothing");
    }
  }
  /// The next publication's references, decoded to what the image function gave.
  std::string PublishedPictures() {
    const Json::Value plate = PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"];
    EXPECT_EQ(plate["plateid"].asUInt(), 7U);
    return Decoded(plate["imagePath"]) + " " + Decoded(plate["imageFragmentPath"]);
  }
  static std::string Decoded(const Json::Value& reference) {
    const std::string text = reference.asString();
    std::string decoded;
    tarvex::Base64::DecodeFromArray(text.data(), text.size(), 21, &decoded, nullptr);
    return decoded;
  }
  /// Requests a picture; whether it was published.
  bool PictureIsTaken(const std::string& name) {
    Answers("ALG_REQUEST_MESSAGE", R"({"body":{"img_path":"/now"}})");
    Answers("BUS_GET_IVS_INFO", R"({"body":{"img_path":"/now"}})");
    const bool done = CloudSends(name, R"({"type":")" + name + R"(","body":{"id":5}})");
    ClaimRequests(1);
    EXPECT_EQ(Published() != "nothing", done);
    return done;
  }
  static std::string PictureNumber(int number) {
    return "/now 20240131235959_SN0001_" + std::to_string(number) + ".jpg";
  }
  const std::vector<std::string> kBothPictures = {"/full 1600000000_SN0001_7_0_full.jpg",
                                                  "/clip 1600000000_SN0001_7_1_clip.jpg"};

  /// What the image function does during its next call, and not during later ones.
  std::function<void()> during_the_next_call_;
};

TEST_F(ImageFunction, MayHaveTheResultConfirmedThatItIsCalledFor) {
  during_the_next_call_ = [this] { adapter_->OnMessagePublished(11); };
  ResultArrives();
  EXPECT_EQ(BusHeard(), Delivered(7));
  EXPECT_EQ(image_calls_, kBothPictures);
  EXPECT_EQ(PublishedPictures(),
            "url:1600000000_SN0001_7_0_full.jpg url:1600000000_SN0001_7_1_clip.jpg");
}

TEST_F(ImageFunction, MayHaveTheResultReplacedThatItIsCalledFor) {
  during_the_next_call_ = [this] {
    adapter_->OnMessagePublished(11);
    Deliver("BUS_SRV_IVS_RESULT", Record().PlateId(8).Text(424, "/other"));
    events_->pending.clear();
  };
  ResultArrives();
  EXPECT_EQ(BusHeard(), Delivered(7));
  EXPECT_EQ(image_calls_, kBothPictures);
  PublishedPictures();
}

TEST_F(ImageFunction, MayHaveTheStoredResultConfirmedThatItIsCalledFor) {
  during_the_next_call_ = [this] { adapter_->OnMessagePublished(16); };
  StoredResultIsSent();
  ClaimRequests(2);
  EXPECT_EQ(BusHeard(), Delivered(7));
  EXPECT_EQ(image_calls_, kBothPictures);
  EXPECT_EQ(PublishedHead(), "ivs_result 16");
  PublishedPictures();
}

TEST_F(ImageFunction, MayStopTheDeliveryThatItIsCalledFor) {
  during_the_next_call_ = [this] {
    EXPECT_TRUE(CloudSends("check_offline_record",
                           R"({"type":"check_offline_record","body":{"enable":"stop"}})"));
  };
  StoredResultIsSent();
  ClaimRequests(2);
  EXPECT_EQ(image_calls_, kBothPictures);
  EXPECT_EQ(PublishedHead(), "ivs_result 16");
  PublishedPictures();
}

TEST_F(ImageFunction, MayAskForTheLastResult) {
  during_the_next_call_ = [this] {
    AnswersNext("BUS_GET_IVS_INFO", Record());
    EXPECT_TRUE(CloudSends("get_last_result", R"({"type":"get_last_result"})"));
    adapter_->OnMessagePublished(11);
  };
  ResultArrives();
  ClaimRequests(2);
  EXPECT_EQ(PublishedHead(), "get_last_result 26");
  EXPECT_EQ(PublishedPictures(),
            "url:1600000000_SN0001_7_1_full.jpg url:1600000000_SN0001_7_2_clip.jpg");
  EXPECT_EQ(PublishedHead(), "ivs_result 11");
  EXPECT_EQ(PublishedPictures(),
            "url:1600000000_SN0001_7_0_full.jpg url:1600000000_SN0001_7_3_clip.jpg");
}

TEST_F(ImageFunction, ASlotMayHaveTheResultConfirmedThatIsPublished) {
  on_publication_ = [this] { adapter_->OnMessagePublished(11); };
  ResultArrives();
  EXPECT_EQ(BusHeard(), Delivered(7));
  PublishedPictures();
  adapter_->OnMessagePublished(11);
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(ImageFunction, ThatThrowsLeavesNoGapInTheNumbersOfPicturesOnRequest) {
  for (const char* name : {"snapshot", "get_image_by_id"}) {
    image_calls_.clear();
    during_the_next_call_ = [] { throw std::runtime_error("no room"); };
    Console([&] {
      EXPECT_FALSE(PictureIsTaken(name));
      EXPECT_TRUE(PictureIsTaken(name));
    });
    EXPECT_EQ(image_calls_, (std::vector<std::string>{PictureNumber(0), PictureNumber(0)}));
  }
}

TEST_F(ImageFunction, MayAskForASnapshotDuringASnapshot) {
  during_the_next_call_ = [this] { EXPECT_TRUE(PictureIsTaken("snapshot")); };
  Console([this] { EXPECT_TRUE(PictureIsTaken("snapshot")); });
  EXPECT_EQ(image_calls_, (std::vector<std::string>{PictureNumber(0), PictureNumber(1)}));
}

TEST_F(ImageFunction, ThatThrowsAfterALaterSnapshotLeavesThatItsNumber) {
  during_the_next_call_ = [this] {
    EXPECT_TRUE(PictureIsTaken("snapshot"));
    throw std::runtime_error("no room");
  };
  Console([this] {
    EXPECT_FALSE(PictureIsTaken("snapshot"));
    EXPECT_TRUE(PictureIsTaken("snapshot"));
  });
  EXPECT_EQ(image_calls_.back(), PictureNumber(2));
}

TEST_F(ImageFunction, ThatThrowsUsesUpTheNumberOfAPlatesPicture) {
  during_the_next_call_ = [] { throw std::runtime_error("no room"); };
  ResultArrives();
  EXPECT_EQ(Published(), "nothing");
  ResultArrives();
  EXPECT_EQ(image_calls_, (std::vector<std::string>{"/full 1600000000_SN0001_7_0_full.jpg",
                                                    "/full 1600000000_SN0001_7_1_full.jpg",
                                                    "/clip 1600000000_SN0001_7_2_clip.jpg"}));
  PublishedPayload();
}

}  // namespace
