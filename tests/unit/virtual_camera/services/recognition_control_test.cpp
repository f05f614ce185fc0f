// The queue of the recognition: trigger and snapshot.
#include <fstream>
#include <iterator>

#include "desk_camera.h"

namespace virtual_camera {
namespace {

namespace fs = std::filesystem;
constexpr char kAlgorithmQueue[] = "ALG_REQUEST_MESSAGE";

class RecognitionQueue : public DeskCamera {
 protected:
  std::string Snapshot() {
    return Body(kAlgorithmQueue, R"({"type":"AV_SRV_GET_SNAPSHOT"})")["img_path"].asString();
  }
};

TEST_F(RecognitionQueue, HasACarPassOnATriggerWrittenWithTabs) {
  const Json::Value body =
      Body(kAlgorithmQueue,
           "\t{\t\t\"type\" : \"AVS_TRIGGER\",\t\t\"body\" : "
           "{\t\t\t\"trigger_result\" :  1,\t\t\t\"trigger_type\" :  4\t\t}\t}");
  EXPECT_EQ(body["plate_id"], 1);
  ASSERT_EQ(bus.heard.size(), 1U);
  EXPECT_EQ(WordAt(bus.heard[0].second, 72), 4U);
}

TEST_F(RecognitionQueue, DrawsASnapshot) {
  EXPECT_TRUE(fs::exists(Snapshot()));
  EXPECT_TRUE(Heard().empty());
}

TEST_F(RecognitionQueue, DrawsEachSnapshotAnewAndKeepsTheLatest) {
  const std::string first = Snapshot();
  EXPECT_NE(Snapshot(), first);
  for (int i = 0; i < 19; ++i) {
    Snapshot();
  }
  EXPECT_FALSE(fs::exists(first));
  const auto files = fs::directory_iterator(directory.path() + "/snapshots");
  EXPECT_EQ(std::distance(begin(files), end(files)), 20);
}

std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST_F(RecognitionQueue, ShowsTheCarThatHasJustPassedAndThenTheEmptyRoad) {
  options.pictures.width = 320;
  Restart();
  const std::string empty = BytesOf(Snapshot());
  CarPasses("AB123CD");
  EXPECT_NE(BytesOf(Snapshot()), empty);
  timeline.Advance(10000);
  timeline.SetSystem(1700000000);
  EXPECT_EQ(BytesOf(Snapshot()), empty);
}

TEST_F(RecognitionQueue, ShowsWhereTheHeadPoints) {
  const std::string ahead = BytesOf(Snapshot());
  device->pan_tilt.Control(4, 2);
  timeline.Advance(1000);
  timeline.SetSystem(1700000000);
  EXPECT_NE(BytesOf(Snapshot()), ahead);
}

}  // namespace
}  // namespace virtual_camera
