// Loading, Initialize, the link's notifications, destruction, and what a degraded
// adapter survives.
#include <dlfcn.h>

#include "adapter_test.h"

namespace {

class Lifecycle : public AdapterTest {
 protected:
  int Initialize() {
    int result = -1;
    console_ = Console([&] { result = adapter_->Initialize(image_func_); });
    return result;
  }

  /// Every operation of BaseAdapter once; none may crash or throw.
  void CallEverything() {
    std::set<std::string> requests;
    std::set<std::string> publishes;
    Console([&] {
      adapter_->GetMessageNames(requests, publishes);
      for (const std::string& name : publishes) {
        adapter_->SubscribeMessage(name);
        adapter_->UnsubscribeMessage(name);
      }
      for (const std::string& name : requests) {
        Json::Value payload;
        payload["type"] = name;
        Json::Value response;
        adapter_->RequestMessage(name, payload, "1.0", response);
      }
      for (unsigned long long tag = 0; tag < 32; ++tag) {
        adapter_->OnMessagePublished(tag);
      }
      adapter_->OnMQTTConnected();
      adapter_->OnMQTTDisconnected();
      adapter_->OnPushDone("x");
      adapter_->OnPushError("x");
      events_->Tick(60000);
    });
  }

  /// Destroys the adapter as its message is delivered.
  struct Destroyer : tarvex::MessageHandler {
    explicit Destroyer(std::function<void()> how) : destroy(std::move(how)) {}
    void OnMessage(tarvex::Message* /*msg*/) override { destroy(); }
    std::function<void()> destroy;
  };

  Destroyer destroyer_{[this] { Destroy(); }};
  std::string console_;
};

TEST_F(Lifecycle, InitializeConnectsInTheFixedOrder) {
  Create();
  EXPECT_EQ(Initialize(), 0);
  EXPECT_EQ(platform().created,
            (std::vector<std::string>{"bus 127.0.0.1:6101 adapter", "database 127.0.0.1:6102 skvdb",
                                      "database 127.0.0.1:6102 usr_data_kvdb"}));
  EXPECT_EQ(platform().listened_topics,
            (std::set<std::string>{"SS_DEV_NAME_CHANGED", "SYS_SRV_IP_CHANGED"}));
}

TEST_F(Lifecycle, InitializePrintsItsMarker) {
  Create();
  Initialize();
  EXPECT_EQ(console_, "\033[31m Initialize \033[0m \n");
}

TEST_F(Lifecycle, InitializeReadsNameAndAddress) {
  platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.0.0.9"})";
  Create();
  Initialize();
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"6 device ip : 10.0.0.9", "6 GetDevName : SVZT"}));
}

TEST_F(Lifecycle, ARefusedListeningDoesNotStopInitialize) {
  platform().listen_result = -1;
  Create();
  EXPECT_EQ(Initialize(), 0);
}

TEST_F(Lifecycle, WithoutABusClientInitializeStillAnswersZero) {
  platform().has_bus = false;
  Create();
  EXPECT_EQ(Initialize(), 0);
  EXPECT_EQ(LoggedBy("Initialize", 3, "Create dp client failed!"), 1U);
  EXPECT_EQ(platform().created.size(), 1U);
}

TEST_F(Lifecycle, WithoutTheSystemDatabaseInitializeAnswersOne) {
  platform().missing_databases = {"skvdb"};
  Create();
  EXPECT_EQ(Initialize(), 1);
  EXPECT_EQ(Logged(3, "ASSERT (!m_skvdb_client_) is true, then return MQTT_ADAPTER_INIT_FAILED"),
            1U);
  EXPECT_EQ(platform().created.size(), 2U);
}

TEST_F(Lifecycle, WithoutTheUserDatabaseInitializeAnswersOne) {
  platform().missing_databases = {"usr_data_kvdb"};
  Create();
  EXPECT_EQ(Initialize(), 1);
  EXPECT_EQ(Logged(3, "ASSERT (!m_ukvdb_client_) is true, then return MQTT_ADAPTER_INIT_FAILED"),
            1U);
}

TEST_F(Lifecycle, AHostNoticesThatThereIsNoBusAsItSubscribesToAnAnswer) {
  platform().has_bus = false;
  Create();
  Initialize();
  EXPECT_FALSE(adapter_->SubscribeMessage("get_sn"));
}

TEST_F(Lifecycle, AHostNoticesThatThereIsABusAsItSubscribesToAnAnswer) {
  Start();
  EXPECT_TRUE(adapter_->SubscribeMessage("get_sn"));
}

TEST_F(Lifecycle, WithoutADatabaseResultsArePublishedAllTheSame) {
  platform().missing_databases = {"skvdb"};
  Create();
  Initialize();
  EXPECT_TRUE(adapter_->SubscribeMessage("ivs_result"));
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  EXPECT_EQ(PublishedHead(), "ivs_result 11");
  PublishedPayload();
}

TEST_F(Lifecycle, AfterAFailureAnotherAdapterIsInitialised) {
  platform().missing_databases = {"skvdb"};
  Create();
  Initialize();
  Destroy();
  platform().missing_databases.clear();
  Create();
  EXPECT_EQ(Initialize(), 0);
}

TEST_F(Lifecycle, APublicationMayHaveItsAdapterDestroyedLater) {
  Start();
  on_publication_ = [this] { events_->Post(&destroyer_, 1, {}, false); };
  EXPECT_TRUE(CloudSends("get_sn", R"({"type":"get_sn"})"));
  RunPosted();
  EXPECT_EQ(adapter_, nullptr);
  EXPECT_EQ(PublishedHead(), "get_sn 25");
  PublishedPayload();
}

TEST_F(Lifecycle, AConnectionIsOnlyLogged) {
  Start();
  adapter_->OnMQTTConnected();
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"6 OnMQTTConnected"}));
  EXPECT_EQ(LoggedBy("OnMQTTConnected", 6, "OnMQTTConnected"), 1U);
}

TEST_F(Lifecycle, ADisconnectionEndsListeningToAddressAndName) {
  Start();
  adapter_->OnMQTTDisconnected();
  EXPECT_EQ(Logged(6, "OnMQTTDisconnected"), 1U);
  EXPECT_EQ(platform().removed_topics,
            (std::vector<std::string>{"SYS_SRV_IP_CHANGED", "SS_DEV_NAME_CHANGED"}));
}

TEST_F(Lifecycle, AReconnectionDoesNotListenAgain) {
  Start();
  adapter_->OnMQTTDisconnected();
  adapter_->OnMQTTConnected();
  EXPECT_TRUE(platform().listened_topics.empty());
}

TEST_F(Lifecycle, ASecondDisconnectionDoesNotFail) {
  Start();
  adapter_->OnMQTTDisconnected();
  adapter_->OnMQTTDisconnected();
  EXPECT_EQ(Logged(6, "OnMQTTDisconnected"), 2U);
}

TEST_F(Lifecycle, DestructionStopsListeningAndClearsEveryPostedMessage) {
  Start();
  adapter_->SubscribeMessage("ivs_result");
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  platform().removed_topics.clear();
  EXPECT_EQ(Waiting(), "199401@0");
  Destroy();
  EXPECT_EQ(platform().removed_topics,
            (std::vector<std::string>{"SYS_SRV_IP_CHANGED", "SS_DEV_NAME_CHANGED"}));
  EXPECT_EQ(events_->cleared_ids, (std::vector<unsigned int>{199401, 199402, 199403, 199405}));
  EXPECT_EQ(Waiting(), "nothing");
}

TEST_F(Lifecycle, DestructionClearsPostedMessagesWhateverTheBusClientThrows) {
  Start();
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  platform().throw_on_remove = "SYS_SRV_IP_CHANGED";
  Destroy();
  EXPECT_EQ(platform().removed_topics, std::vector<std::string>{"SS_DEV_NAME_CHANGED"});
  EXPECT_EQ(Waiting(), "nothing");
  EXPECT_EQ(LogLines(3), std::vector<std::string>{"caught: thrown by the bus"});
}

TEST_F(Lifecycle, DestructionClearsEveryMessageThoughOneCannotBeCleared) {
  Start();
  events_->throw_on_clear = 199401;
  Destroy();
  EXPECT_EQ(events_->cleared_ids, (std::vector<unsigned int>{199402, 199403, 199405}));
  EXPECT_EQ(LogLines(3), std::vector<std::string>{"caught: thrown by the event service"});
}

TEST_F(Lifecycle, ADisconnectionEndsListeningToTheNameWhateverBecomesOfTheAddress) {
  Start();
  platform().throw_on_remove = "SYS_SRV_IP_CHANGED";
  adapter_->OnMQTTDisconnected();
  EXPECT_EQ(platform().removed_topics, std::vector<std::string>{"SS_DEV_NAME_CHANGED"});
}

TEST_F(Lifecycle, DestroyingNothingHasNoEffect) {
  void* library = dlopen(LibraryFile(), RTLD_NOW);
  ASSERT_NE(library, nullptr) << dlerror();
  reinterpret_cast<decltype(&destory_adapter)>(dlsym(library, "destory_adapter"))(nullptr);
  dlclose(library);
}

TEST_F(Lifecycle, NeverInitializedSurvivesEveryCall) {
  Create();
  CallEverything();
  EXPECT_EQ(BusHeard(), "nothing");
  ClaimEverything();
}

TEST_F(Lifecycle, WithoutABusClientSurvivesEveryCall) {
  platform().has_bus = false;
  Create();
  Initialize();
  CallEverything();
  EXPECT_EQ(BusHeard(), "nothing");
  ClaimEverything();
}

TEST_F(Lifecycle, WithoutADatabaseSurvivesEveryCallAndEvent) {
  for (const char* missing : {"skvdb", "usr_data_kvdb"}) {
    platform().missing_databases = {missing};
    Create();
    Initialize();
    CallEverything();
    for (const char* topic : {"BUS_SRV_IVS_RESULT", "EVT_SRV_EXTERNAL_TRIGGER", "EVS_RS485_READ",
                              "BUS_SRV_LANECTRL_RESULT", "SYS_SRV_IP_CHANGED"}) {
      Console([&] { Deliver(topic, R"({"results":[]})"); });
    }
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(5));
    RunPosted();
    adapter_->OnMessagePublished(11);
    adapter_->OnMessagePublished(16);
    ClaimEverything();
    Destroy();
  }
}

TEST_F(Lifecycle, WithoutAnEventServiceSurvivesEveryCall) {
  events_.reset();
  Create();
  events_.reset(new fake::EventService);  // not the adapter's
  Initialize();
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  CallEverything();
  ClaimEverything();
}

TEST_F(Lifecycle, WithoutAnEventServiceATimedMoveIsCarriedOutAndNeverStopped) {
  events_.reset();
  Create();
  events_.reset(new fake::EventService);  // not the adapter's
  Initialize();
  Answers("BUS_REQUEST_MESSAGE", "{}");
  EXPECT_TRUE(CloudSends("set_cloud_ctrl", R"({"type":"set_cloud_ctrl","body":{"type":2}})"));
  EXPECT_EQ(BusHeard().substr(0, 19), "BUS_REQUEST_MESSAGE");
}

TEST_F(Lifecycle, WhatABusClientThrowsStaysInside) {
  Start();
  platform().throw_on_request = "SS_BUS_REQUEST";
  EXPECT_FALSE(CloudSends("reboot_dev", R"({"type":"reboot_dev"})"));
  EXPECT_EQ(LoggedBy("RequestMessage", 3, "caught: thrown by the bus"), 1U);
}

TEST_F(Lifecycle, WhatAnImageFunctionThrowsStaysInside) {
  image_func_ = [](const std::string&, const std::string&) -> std::string { throw 5; };
  Start();
  Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
  RunPosted();
  EXPECT_EQ(LoggedBy("OnMessage", 3, "caught: unknown exception"), 1U);
  EXPECT_EQ(Published(), "nothing");
}

TEST_F(Lifecycle, OnPushOperationsAreEmpty) {
  Start();
  adapter_->OnPushDone("name");
  adapter_->OnPushError("name");
  EXPECT_TRUE(LogLines().empty());
}

}  // namespace
