// How long a call keeps the host's thread at the most: what it waits for on the bus, where a
// service is silent, and where each answers in the last moment.
#include <map>
#include <regex>
#include <sstream>

#include "offline_fixture.h"
#include "support/good_requests.h"

/// docs/porting.md, embedded.
extern "C" {
extern const char porting_document[];
extern const char porting_document_end[];
}

namespace {

constexpr char kOnePiece[] = R"({"type":"serial_data","body":{"serialData":[)"
                             R"({"serialChannel":0,"data":"QQ==","dataLen":1}]}})";

class Blocking : public OfflineTest {
 protected:
  /// Notes how many milliseconds everything asked within a call may take together.
  void WaitFor(const std::string& name, const std::function<void()>& call) {
    Console(call);
    int waited_ms = 0;
    for (const fake::BusRequest& request : platform().requests) {
      waited_ms += request.timeout_ms;
    }
    ClaimEverything();
    waited_[name] = std::max(waited_[name], waited_ms);
  }
  void EveryServiceAnswers() {
    for (const GoodRequest& request : kGoodRequests) {
      Answers(request.queue, R"({"body":{"img_path":"/now"},"state":200})");
    }
  }
  void WaitForRequest(const std::string& name, const std::string& payload) {
    WaitFor(name, [&] {
      CloudSends(name, payload);
      response_ = Json::Value();
    });
  }
  void WaitForEveryRequest() {
    for (const GoodRequest& request : kGoodRequests) {
      if (request.name != std::string("serial_data")) {  // it has two pieces there
        WaitForRequest(request.name, request.payload);
      }
    }
    WaitForRequest("serial_data", kOnePiece);
    WaitForRequest("check_offline_record",
                   R"({"type":"check_offline_record","body":{"enable":"clear"}})");
    WaitForRequest("white_list_operator", R"({"type":"white_list_operator",)"
                                          R"("body":{"operator_type":"delete","plate":"A"}})");
  }
  void WaitForEveryNotice() {
    WaitFor("OnMessagePublished(11)", [this] {
      Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
      adapter_->OnMessagePublished(11);
      events_->pending.clear();
    });
    WaitFor("OnMessagePublished(16)", [this] {
      Push(2);
      StoreHandsOut(stored_);
      adapter_->OnMessagePublished(16);
      events_->pending.clear();
    });
    WaitFor("SubscribeMessage", [this] {
      std::set<std::string> requests;
      std::set<std::string> publishes;
      adapter_->GetMessageNames(requests, publishes);
      publishes.erase("offline_record");
      for (const std::string& name : publishes) {
        adapter_->SubscribeMessage(name);
        adapter_->UnsubscribeMessage(name);
      }
    });
    WaitFor("SubscribeMessage(\"offline_record\")",
            [this] { adapter_->SubscribeMessage("offline_record"); });
  }
  void WaitForEveryPostedMessage() {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
    WaitFor("199401", [this] { RunPosted(); });
    WaitFor("199402", [this] {
      CloudSends("check_offline_record",
                 R"({"type":"check_offline_record","body":{"enable":"stop"}})");
      Push(2);
      StoreCounts(static_cast<int>(stored_.size()));
      StoreHandsOut(stored_);
      RunPosted();
    });
    events_->pending.clear();
    WaitFor("199403", [this] { Post(199403); });
    Answers("BUS_REQUEST_MESSAGE", "{}");
    CloudSends("set_cloud_ctrl", R"({"type":"set_cloud_ctrl","body":{"type":2}})");
    platform().requests.clear();
    WaitFor("199405", [this] { events_->Tick(500); });
  }
  void Post(unsigned int id) {
    events_->Post(Handler(), id, {}, false);
    RunPosted();
  }
  /// The adapter as the event service knows it.
  tarvex::MessageHandler* Handler() {
    auto* handler = dynamic_cast<tarvex::MessageHandler*>(adapter_);
    EXPECT_NE(handler, nullptr);
    return handler;
  }
  void WaitForEverything() {
    WaitForEveryRequest();
    WaitForEveryNotice();
    WaitForEveryPostedMessage();
  }
  /// The rows of the table that hosts are given: "call" to milliseconds, of one of its columns.
  static std::map<std::string, int> Promised(size_t column) {
    std::istringstream document(std::string(porting_document, porting_document_end));
    const std::regex row(R"(\| `([^`]+)`[^|]*\| (\d+) \| (\d+) \|.*)");
    std::map<std::string, int> promised;
    std::smatch cells;
    for (std::string line; std::getline(document, line);) {
      if (std::regex_match(line, cells, row)) {
        promised[cells[1]] = std::stoi(cells[1 + column]);
      }
    }
    return promised;
  }

  std::vector<unsigned int> stored_;   ///< what the store hands out
  std::map<std::string, int> waited_;  ///< the longest of each call
};

TEST_F(Blocking, OfASilentServiceIsAsHostsAreTold) {
  WaitForEverything();
  EXPECT_EQ(waited_, Promised(1));
}

TEST_F(Blocking, IsAtMostWhatHostsAreTold) {
  WaitForEverything();
  EveryServiceAnswers();
  stored_ = {1, 2};
  WaitForEverything();
  EXPECT_EQ(waited_, Promised(2));
}

TEST_F(Blocking, OfSerialDataIsThatOfEachPiece) {
  WaitForRequest("serial_data", R"({"type":"serial_data","body":{"serialData":[)"
                                R"({"serialChannel":0,"data":"QQ==","dataLen":1},)"
                                R"({"serialChannel":1,"data":"QQ==","dataLen":1}]}})");
  EXPECT_EQ(waited_["serial_data"], 2 * Promised(1)["serial_data"]);
}

}  // namespace
