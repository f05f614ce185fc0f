#include "desk_camera.h"

namespace virtual_camera {
namespace {

constexpr char kWhiteListQueue[] = "BUS_WHITE_LIST_INFO";

class WhiteListQueue : public DeskCamera {
 protected:
  Json::Value Replace(const std::string& records) {
    return Body(kWhiteListQueue,
                R"({"type":"replace_white_list","body":{"white_list_rec":)" + records + "}}");
  }
  std::string Select(const std::string& plate) {
    return Compact(Body(kWhiteListQueue, R"({"type":"select_white_list","body":{"plate":")" +
                                             plate + R"("}})")["white_list_rec"]);
  }
  Json::Value SetCheck(const std::string& value) {
    return Body(kWhiteListQueue,
                R"({"type":"set_wl_check_status","body":{"filter_enable":)" + value + "}}");
  }
  int Gate() { return device->gpio.Output(0); }
};

TEST_F(WhiteListQueue, KeepsRecordsWhole) {
  EXPECT_EQ(Compact(Replace(R"([{"plate":"A","owner":{"name":"x"}},{"plate":"B"}])")),
            R"({"refused":0,"stored":2})");
  EXPECT_EQ(Select("A"), R"([{"owner":{"name":"x"},"plate":"A"}])");
  EXPECT_EQ(Select("C"), "[]");
}

TEST_F(WhiteListQueue, ReplacesTheRecordOfAPlate) {
  Replace(R"([{"plate":"A","owner":"x"}])");
  Replace(R"([{"plate":"A","note":"y"}])");
  EXPECT_EQ(Select("A"), R"([{"note":"y","plate":"A"}])");
  EXPECT_EQ(device->white_list.Count(), 1);
}

TEST_F(WhiteListQueue, RefusesWhatIsNoRecordOneByOne) {
  const std::string long_plate(16, 'x');
  EXPECT_EQ(Compact(Replace(R"([null,7,{},{"plate":5},{"plate":""},{"plate":")" + long_plate +
                            R"("},{"plate":"A"}])")),
            R"({"refused":6,"stored":1})");
  EXPECT_EQ(device->white_list.Count(), 1);
}

TEST_F(WhiteListQueue, RefusesARequestOfWhichNothingIsUsable) {
  EXPECT_EQ(Replace("[null]")["state_code"], 400);
  EXPECT_EQ(Replace(R"({"plate":"A"})")["state_code"], 400);
  EXPECT_EQ(device->white_list.Count(), 0);
}

TEST_F(WhiteListQueue, DeletesPlates) {
  Replace(R"([{"plate":"A"},{"plate":"B"},{"plate":"C"}])");
  EXPECT_EQ(Body(kWhiteListQueue,
                 R"({"type":"delete_white_list","body":{"plates":["A","C","X",7]}})")["deleted"],
            2);
  EXPECT_EQ(Select("A"), "[]");
  EXPECT_NE(Select("B"), "[]");
  EXPECT_EQ(device->white_list.Count(), 1);
}

TEST_F(WhiteListQueue, DeletesNothingWithoutPlates) {
  Replace(R"([{"plate":"A"}])");
  for (const char* body : {"null", "{}", R"({"plates":"A"})", R"({"plates":{"a":"A"}})"}) {
    const std::string request = R"({"type":"delete_white_list","body":)" + std::string(body) + "}";
    EXPECT_EQ(Body(kWhiteListQueue, request)["state_code"], 400) << body;
  }
  EXPECT_EQ(device->white_list.Count(), 1);
}

TEST_F(WhiteListQueue, KeepsListAndCheckOverARestart) {
  Replace(R"([{"plate":"A"}])");
  SetCheck("2");
  Restart();
  EXPECT_EQ(device->white_list.Count(), 1);
  EXPECT_EQ(Ask(kWhiteListQueue, R"({"type":"get_wl_check_status"})"),
            R"({"body":{"filter_enable":2},"state_code":200})");
}

TEST_F(WhiteListQueue, RefusesAnotherCheckStatus) {
  SetCheck("1");
  for (const char* value : {"3", "-1", "\"1\"", "null", "1.5"}) {
    EXPECT_EQ(SetCheck(value)["state_code"], 400) << value;
  }
  EXPECT_EQ(device->white_list.check(), WhiteList::Check::kOpenForListed);
}

TEST_F(WhiteListQueue, LeavesTheGateAloneWithTheCheckOff) {
  Replace(R"([{"plate":"A"}])");
  CarPasses("A");
  EXPECT_EQ(Gate(), 0);
}

TEST_F(WhiteListQueue, OpensTheGateForASecondToAListedPlate) {
  Replace(R"([{"plate":"A"}])");
  SetCheck("1");
  CarPasses("A");
  timeline.Advance(999);
  EXPECT_EQ(Gate(), 1);
  timeline.Advance(1);
  EXPECT_EQ(Gate(), 0);
}

TEST_F(WhiteListQueue, OpensTheGateToNoOtherPlate) {
  Replace(R"([{"plate":"A"}])");
  SetCheck("1");
  CarPasses("B");
  EXPECT_EQ(Gate(), 0);
}

TEST_F(WhiteListQueue, LeavesAnOpenGateToTheCarBehindUnlessItBlocks) {
  Replace(R"([{"plate":"A"}])");
  SetCheck("1");
  CarPasses("A");
  CarPasses("B");
  EXPECT_EQ(Gate(), 1);
  SetCheck("2");
  CarPasses("B");
  EXPECT_EQ(Gate(), 0);
  EXPECT_EQ(device->State()["results"]["gate_blocked"], 1);
}

}  // namespace
}  // namespace virtual_camera
