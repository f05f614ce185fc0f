// The queue of the result store.
#include "desk_camera.h"

namespace virtual_camera {
namespace {

constexpr char kResultsQueue[] = "BUS_GET_IVS_INFO";

class ResultQueue : public DeskCamera {
 protected:
  // Requests come indented over several lines from one side, on one line from the other.
  std::string Select(uint32_t count, uint32_t id) {
    Json::Value request;
    request["type"] = "STP_SELECT_MQTT_OFFLINE_RECORD";
    request["body"]["count"] = count;
    request["body"]["id"] = id;
    return Ask(kResultsQueue, request.toStyledString());
  }

  std::string Confirm(uint32_t id) {
    return Ask(kResultsQueue, R"({"type":"STP_SET_MQTT_OFFLINE_STATUS","body":{"plate_id":)" +
                                  std::to_string(id) + R"(,"push_status":0}})");
  }
};

TEST_F(ResultQueue, AnswersTheLastResultWithItsRawRecord) {
  CarPasses("FIRST");
  const IvsRecord last = CarPasses("LAST");
  EXPECT_EQ(Ask(kResultsQueue, R"({"type":"get_last_ivs"})"), RecordBytes(last));
}

TEST_F(ResultQueue, AnswersTheLastResultOfAnEmptyStoreWithNothing) {
  EXPECT_EQ(Ask(kResultsQueue, R"({"type":"get_last_ivs"})"), "");
}

TEST_F(ResultQueue, AnswersThePathOfAPicture) {
  const IvsRecord record = CarPasses("AB123CD");
  EXPECT_EQ(
      Body(kResultsQueue, R"({"type":"get_img_path_by_id","body":{"plateid":1}})")["img_path"],
      GetText(record.full_path));
}

TEST_F(ResultQueue, AnswersAnUnknownIdWithoutAPath) {
  EXPECT_EQ(Compact(Body(kResultsQueue, R"({"type":"get_img_path_by_id","body":{"plateid":9}})")),
            "{}");
  EXPECT_EQ(
      Body(kResultsQueue, R"({"type":"get_img_path_by_id","body":{"plateid":-1}})")["state_code"],
      400);
}

TEST_F(ResultQueue, CountsWhatIsUndeliveredAndItsAge) {
  CarPasses("A");
  timeline.Advance(7000);
  CarPasses("B");
  EXPECT_EQ(Compact(Body(kResultsQueue, R"({"type":"STP_GET_MQTT_OFFLINE_COUNT"})")),
            R"({"offline_count":2,"oldest_age_s":7})");
}

TEST_F(ResultQueue, SelectsRecordsOfFiveHundredAndFiftySixBytes) {
  const IvsRecord a = CarPasses("A");
  const IvsRecord b = CarPasses("B");
  CarPasses("C");
  EXPECT_EQ(Select(2, 0),
            RecordBytes(a) + std::string(4, '\0') + RecordBytes(b) + std::string(4, '\0'));
  EXPECT_EQ(Select(5, 3).size(), 556U);
  EXPECT_EQ(Select(5, 4), "");
}

TEST_F(ResultQueue, BoundsWhatItSelects) {
  for (uint32_t id = 1; id <= 1001; ++id) {
    device->results.Insert(id, std::string(552, 'x'), 0, 0);
  }
  EXPECT_EQ(Select(UINT32_MAX, 0).size(), 556000U);
}

TEST_F(ResultQueue, TakesAConfirmedResultOut) {
  CarPasses("A");
  CarPasses("B");
  Confirm(1);
  EXPECT_EQ(WordAt(Select(5, 0), 80), 2U);
  EXPECT_EQ(Select(5, 0).size(), 556U);
}

TEST_F(ResultQueue, ConfirmsWhatItDoesNotHaveWithoutAnyEffect) {
  CarPasses("A");
  EXPECT_EQ(Parsed(Confirm(99))["body"]["changed"], 0);
  EXPECT_EQ(device->results.totals().undelivered, 1);
}

TEST_F(ResultQueue, ClearsEverythingUndelivered) {
  CarPasses("A");
  CarPasses("B");
  EXPECT_EQ(Body(kResultsQueue, R"({"type":"STP_CLEAR_MQTT_OFFLINE"})")["cleared"], 2);
  EXPECT_EQ(Select(5, 0), "");
}

TEST_F(ResultQueue, AnswersWithAnErrorWhenTheStoreFails) {
  device->database.Execute("DROP TABLE results");
  for (const char* type : {"get_last_ivs", "STP_CLEAR_MQTT_OFFLINE"}) {
    EXPECT_EQ(Body(kResultsQueue, std::string(R"({"type":")") + type + R"("})")["state_code"], 400);
  }
}

TEST_F(ResultQueue, RemembersConfirmationsOverARestart) {
  CarPasses("A");
  CarPasses("B");
  Confirm(1);
  Restart();
  EXPECT_EQ(Body(kResultsQueue, R"({"type":"STP_GET_MQTT_OFFLINE_COUNT"})")["offline_count"], 1);
}

}  // namespace
}  // namespace virtual_camera
