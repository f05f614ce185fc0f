// A run of re-deliveries, step by step.
#pragma once

#include "adapter_test.h"

class OfflineTest : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
  void Push(int max_count) {
    EXPECT_TRUE(
        CloudSends("check_offline_record",
                   R"({"type":"check_offline_record","body":{"enable":"push","max_count":)" +
                       std::to_string(max_count) + "}}"));
  }
  void StoreCounts(int count) {
    AnswersNext("BUS_GET_IVS_INFO", R"({"body":{"offline_count":)" + std::to_string(count) + "}}");
  }
  void StoreHandsOut(const std::vector<unsigned int>& plate_ids) {
    std::string records;
    for (const unsigned int plate_id : plate_ids) {
      records += RecordBytes().PlateId(plate_id).str() + "tail";
    }
    AnswersNext("BUS_GET_IVS_INFO", records);
  }
  /// The plate id of the next publication, which is a re-delivered result.
  unsigned int Redelivered() {
    EXPECT_EQ(PublishedHead(), "ivs_result 16");
    const Json::Value plate = PublishedPayload()["AlarmInfoPlate"]["result"]["PlateResult"];
    EXPECT_EQ(plate["isoffline"].asInt(), 1);
    return plate["plateid"].asUInt();
  }
  static std::string Select(const std::string& count) {
    return "BUS_GET_IVS_INFO {\n\t\"body\" : \n\t{\n\t\t\"count\" : " + count +
           ",\n\t\t\"id\" : 0\n\t},\n\t\"type\" : \"STP_SELECT_MQTT_OFFLINE_RECORD\"\n}\n"
           " timeout=5000";
  }
  static std::string Delivered(unsigned int plate_id) {
    return "BUS_GET_IVS_INFO {\n\t\"body\" : \n\t{\n\t\t\"plate_id\" : " +
           std::to_string(plate_id) +
           ",\n\t\t\"push_status\" : 0\n\t},\n\t\"type\" : \"STP_SET_MQTT_OFFLINE_STATUS\"\n}\n"
           " timeout=5000";
  }
  /// Turns the clock; what was printed meanwhile.
  std::string TickQuietly(int elapsed_ms) {
    return Console([&] { events_->Tick(elapsed_ms); });
  }
  const std::string kCount =
      "BUS_GET_IVS_INFO {\n\t\"type\" : \"STP_GET_MQTT_OFFLINE_COUNT\"\n}\n timeout=5000";
};
