// The boundary as bytes: where the members of BaseAdapter are, and which slot is which, without
// regard to what the headers say. A host that was built years ago calls by these numbers.
#include <cstring>
#include <string>
#include <vector>

#include "adapter_test.h"
#include "cache/kvdb_client.h"
#include "chw_info.h"

namespace {

constexpr size_t kWord = sizeof(void*);

/// The slot that a pointer to a virtual function stands for.
template <class Member>
size_t SlotOf(Member member) {
  size_t offset = 0;
  memcpy(&offset, &member, sizeof(offset));
  return offset / kWord;  // on some processors its lowest bit says that it is virtual
}

class BinaryInterface : public AdapterTest {
 protected:
  void SetUp() override { Start(); }

  /// What stands at an offset of the adapter.
  template <class Value>
  Value At(size_t offset) const {
    Value value;
    memcpy(&value, reinterpret_cast<const char*>(adapter_) + offset, sizeof(value));
    return value;
  }
  /// Calls a slot of the adapter with what it takes besides the adapter itself.
  template <class Result = void, class... Args>
  Result Call(size_t slot, Args... args) {
    void* function = At<void**>(0)[slot];
    return reinterpret_cast<Result (*)(BaseAdapter*, Args...)>(function)(adapter_, args...);
  }
  /// The function that made the only entry since the last call.
  std::string LoggedFunction() {
    const std::vector<fake::LogEntry> logs = platform().logs;
    ForgetLogs();
    return logs.size() == 1 ? logs[0].function : std::to_string(logs.size()) + " entries";
  }
};

TEST_F(BinaryInterface, OfTheHostHasItsMembersWhereHostsExpectThem) {
  EXPECT_EQ(reinterpret_cast<char*>(&adapter_->SignalPushMessage),
            reinterpret_cast<char*>(adapter_) + kWord);
  EXPECT_EQ(At<int>(5 * kWord), 7) << "the number that create_adapter was given";
  EXPECT_EQ(At<void*>(6 * kWord), events_.get());
  EXPECT_EQ(sizeof(BaseAdapter), 8 * kWord);
}

TEST_F(BinaryInterface, OfTheHostInitializesInSlotTwo) {
  Destroy();
  Create();
  const std::function<std::string(const std::string&, const std::string&)> none;
  const std::string said = Console([&] { EXPECT_EQ((Call<int, const void*>(2, &none)), 0); });
  EXPECT_EQ(said, "\033[31m Initialize \033[0m \n");
}

TEST_F(BinaryInterface, OfTheHostTellsItsNamesInSlotThree) {
  std::set<std::string> requests;
  std::set<std::string> publishes;
  Console([&] { Call<void, void*, void*>(3, &requests, &publishes); });
  EXPECT_EQ(requests.size(), 23U);
  EXPECT_EQ(publishes.size(), 18U);
}

TEST_F(BinaryInterface, OfTheHostSubscribesInSlotFourAndUnsubscribesInSlotFive) {
  const std::string name = "gpio_in";
  EXPECT_TRUE((Call<bool, const void*>(4, &name)));
  EXPECT_EQ(platform().listened_topics.count("EVT_SRV_EXTERNAL_TRIGGER"), 1U);
  Call<void, const void*>(5, &name);
  EXPECT_EQ(platform().listened_topics.count("EVT_SRV_EXTERNAL_TRIGGER"), 0U);
}

TEST_F(BinaryInterface, OfTheHostRequestsInSlotSix) {
  const std::string name = "get_sn";
  const std::string version = "1.0";
  const Json::Value payload = Parsed(R"({"type":"get_sn"})");
  Json::Value response;
  EXPECT_TRUE((Call<bool, const void*, const void*, const void*, void*>(6, &name, &payload,
                                                                        &version, &response)));
  EXPECT_EQ(PublishedHead(), "get_sn 25");
  PublishedPayload();
}

TEST_F(BinaryInterface, OfTheHostIsNotifiedInSlotsSevenToNine) {
  Call(7);
  EXPECT_EQ(LoggedFunction(), "OnMQTTDisconnected");
  Call(8);
  EXPECT_EQ(LoggedFunction(), "OnMQTTConnected");
  Call<void, unsigned long long>(9, 12ULL << 32);
  EXPECT_EQ(LoggedFunction(), "OnMessagePublished");
}

TEST_F(BinaryInterface, OfTheHostHasItsEmptyOperationsInSlotsTenAndEleven) {
  const std::string text = "text";
  Call<void, const void*>(10, &text);
  Call<void, const void*>(11, &text);
  EXPECT_EQ(LogLines(), std::vector<std::string>{});
  EXPECT_EQ(SlotOf(&BaseAdapter::OnPushDone), 10U);
  EXPECT_EQ(SlotOf(&BaseAdapter::OnPushError), 11U);
}

TEST_F(BinaryInterface, OfTheHostIsDestroyedInSlotOne) {
  Call(1);
  adapter_ = nullptr;
  EXPECT_EQ(platform().bus, nullptr) << "the adapter held the only reference to its bus client";
}

TEST(PlatformSlots, AreThoseThatPlatformsHave) {
  EXPECT_EQ(SlotOf(&tarvex::EventService::Post), 2U);
  EXPECT_EQ(SlotOf(&tarvex::EventService::PostDelayed), 3U);
  EXPECT_EQ(SlotOf(&tarvex::EventService::Clear), 4U);
  EXPECT_EQ(SlotOf(&tarvex::MessageHandler::OnMessage), 2U);
  EXPECT_EQ(SlotOf(&tarvex::DpClient::SendRequest), 2U);
  EXPECT_EQ(SlotOf(&tarvex::DpClient::ListenMessage), 3U);
  EXPECT_EQ(SlotOf(&tarvex::DpClient::RemoveListenMessage), 4U);
  EXPECT_EQ(SlotOf(&cache::KvdbClient::GetValue), 2U);
  EXPECT_EQ(SlotOf(&ChwInfo::GetAppVer), 2U);
  EXPECT_EQ(SlotOf(&ChwInfo::GetOemSn), 3U);
}

TEST(PlatformObjects, HaveTheirMembersWherePlatformsHaveThem) {
  tarvex::Message message = {};
  const auto offset = [](const auto& object, const auto& member) {
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&object);
  };
  EXPECT_EQ(offset(message, message.handler), 0);
  EXPECT_EQ(offset(message, message.message_id), static_cast<ptrdiff_t>(kWord));
  EXPECT_EQ(offset(message, message.data), static_cast<ptrdiff_t>(2 * kWord));
  tarvex::DpMessage heard;
  EXPECT_EQ(offset(heard, heard.method), 0);
  EXPECT_EQ(offset(heard, heard.body), static_cast<ptrdiff_t>(sizeof(std::string)));
  tarvex::_TimeS time = {};
  EXPECT_EQ(offset(time, time.month), 4);
  EXPECT_EQ(offset(time, time.second), 20);
}

}  // namespace
