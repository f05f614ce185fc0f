// What the adapter leaves where others read it: on the host's standard output, and of plates in the
// system log.
#include <set>
#include <sstream>
#include <string>

#include "adapter_test.h"

namespace {

class Traces : public AdapterTest {
 protected:
  void SetUp() override {
    Answers("ALG_REQUEST_MESSAGE", R"({"body":{"img_path":"/now"}})");
    Answers("BUS_WHITE_LIST_INFO", R"({"body":{"white_list_rec":{"plate":"AB123"}}})");
  }
  void TearDown() override { ClaimEverything(); }
  /// A life of an adapter: each event, and each request that leaves a trace.
  void Live() {
    Create();
    adapter_->Initialize(image_func_);
    std::set<std::string> requests;
    std::set<std::string> publishes;
    adapter_->GetMessageNames(requests, publishes);
    for (const std::string& name : publishes) {
      adapter_->SubscribeMessage(name);
    }
    adapter_->OnMQTTConnected();
    Recognise();
    Deliver(
        "BUS_SRV_LANECTRL_RESULT",
        R"({"results":[{"plate_result":{"license":"AB123"}}],"full_image":[{"full_image_id":1}],)"
        R"("small_image":[{"small_image_id":2}]})");
    Deliver("EVT_SRV_EXTERNAL_TRIGGER", R"({"body":{"flag":1,"source":2}})");
    Deliver("EVS_RS485_READ", R"({"body":{"source":1,"rs485_data":"QUI=","data_len":2}})");
    CloudSends("snapshot", R"({"type":"snapshot"})");
    Answers("ALG_REQUEST_MESSAGE", "", 0);
    CloudSends("ivs_trigger", R"({"type":"ivs_trigger"})");
    ChangeTheWhiteList();
    adapter_->OnMQTTDisconnected();
    for (const std::string& name : publishes) {
      adapter_->UnsubscribeMessage(name);
    }
    Destroy();
  }
  void Recognise() {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().Text(0, "AB123"));
    RunPosted();
    adapter_->OnMessagePublished(11);
  }
  void ChangeTheWhiteList() {
    for (const char* body : {R"({"operator_type":"delete","plate":"AB123"})",
                             R"({"operator_type":"update_or_add","dldb_rec":{"plate":"AB123"}})"}) {
      CloudSends("white_list_operator",
                 std::string(R"({"type":"white_list_operator","body":)") + body + "}");
    }
  }
  /// What each printed text begins with, up to a colon. Styled JSON has lines of its own.
  std::set<std::string> Printed() {
    std::istringstream text(Console([this] { Live(); }));
    std::set<std::string> beginnings;
    for (std::string line; std::getline(text, line);) {
      if (line.find_first_of("\t{} ") != 0) {
        beginnings.insert(line.substr(0, line.find(':')));
      }
    }
    return beginnings;
  }
  /// "level function" of each entry that has the plate in it, as it is or as Base64.
  std::set<std::string> EntriesWithThePlate() {
    Console([this] { Live(); });
    std::set<std::string> entries;
    for (const fake::LogEntry& entry : platform().logs) {
      if (entry.text.find("AB123") != std::string::npos ||
          entry.text.find("QUIxMjM=") != std::string::npos) {
        entries.insert(std::to_string(entry.priority) + " " + entry.function);
      }
    }
    return entries;
  }
};

TEST_F(Traces, OnStandardOutputAreTheseTextsAndNoOthers) {
  EXPECT_EQ(Printed(),
            (std::set<std::string>{"\033[31m GetMessageNames \033[0m ",
                                   "\033[31m Initialize \033[0m ", "\033[31m SUB_OFFLINE_RECORD",
                                   "\033[31m message", "\033[31m send dp failed",
                                   "GetSerialPushData", "SnapshotPushData", "decode_path"}));
}

TEST_F(Traces, OfPlatesAreInTheLogAtTheUsualLevel) {
  EXPECT_EQ(
      EntriesWithThePlate(),
      (std::set<std::string>{"6 DeleteWlInfo", "6 GetPlateInfoJson", "6 OnDpMessage",
                             "6 OnLanectrlResultEvent", "6 ReplaceWlInfo", "7 OnIvsResultEvent"}));
}

}  // namespace
