#include "cloud_agent/agent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "fake_bus.h"
#include "fake_loop.h"
#include "json_text.h"
#include "support/temp_directory.h"

namespace agent {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using Calls = std::vector<std::string>;

/// Notes what it is told, and carries out what it is asked.
class FakeAdapter : public BaseAdapter {
 public:
  explicit FakeAdapter(Calls* calls) : BaseAdapter(nullptr, 0), calls_(calls) {}

  int Initialize(std::function<std::string(const std::string&, const std::string&)> func) override {
    image_function = func;
    calls_->push_back("Initialize");
    return initialize_result;
  }
  void GetMessageNames(std::set<std::string>& requests, std::set<std::string>& publishes) override {
    calls_->push_back("GetMessageNames");
    requests = {"check_offline_record", "get_sn"};
    publishes = {"get_sn", "ivs_result"};
  }
  bool SubscribeMessage(const std::string& name) override {
    calls_->push_back("Subscribe " + name);
    return name != refused_name;
  }
  void UnsubscribeMessage(const std::string& name) override {
    calls_->push_back("Unsubscribe " + name);
  }
  bool RequestMessage(const std::string& name, const Json::Value& payload, const std::string&,
                      Json::Value&) override {
    std::string text;
    Json::Json2String(payload, text);
    calls_->push_back("Request " + name + " " + text);
    on_request();
    return true;
  }
  void OnMQTTDisconnected() override { calls_->push_back("Disconnected"); }
  void OnMQTTConnected() override { calls_->push_back("Connected"); }
  void OnMessagePublished(unsigned long long tag) override {
    calls_->push_back("Published " + std::to_string(tag));
  }

  int initialize_result = 0;
  std::function<void()> on_request = [] {};
  std::string refused_name;
  std::function<std::string(const std::string&, const std::string&)> image_function;

 private:
  Calls* calls_;
};

class FakeLink : public Link {
 public:
  explicit FakeLink(Calls* calls) : calls_(calls) {}

  void Start(LinkListener* new_listener) override {
    calls_->push_back("Start link");
    listener = new_listener;
  }
  Publication Publish(const OutboundMessage& message) override {
    if (result != PublishResult::kAccepted) {
      return {result, 0};
    }
    sent.push_back(message.topic + (message.retain ? " retained " : " ") + message.payload);
    return {result, ++last_id};
  }
  void Drop(const std::string& reason) override { calls_->push_back("Drop link, " + reason); }
  bool Stop(const OutboundMessage& last) override {
    calls_->push_back("Stop link, " + last.topic + (last.retain ? " retained " : " ") +
                      last.payload);
    return true;
  }

  LinkListener* listener = nullptr;
  PublishResult result = PublishResult::kAccepted;
  std::uint64_t last_id = 0;
  std::vector<std::string> sent;

 private:
  Calls* calls_;
};

class AgentTest : public ::testing::Test {
 protected:
  AgentTest() { options_.requests.topics = {"cameras", "cameras/CAM1"}; }

  /// Starts the agent; calls_ holds what happened by then.
  void Start() {
    Agent::Parts parts;
    parts.post = loop_.Post();
    parts.post_after = loop_.PostAfter();
    parts.create_adapter = [this] {
      calls_.push_back("create");
      return AdapterPtr(adapter_, [this](BaseAdapter* adapter) {
        calls_.push_back("destroy");
        delete adapter;
      });
    };
    parts.now = Now();
    parts.link = &link_;
    requests_ = std::make_unique<RequestLine>(max_requests_, loop_.Post());
    parts.requests = requests_.get();
    parts.pictures = &pictures_;
    parts.screen = &screen_;
    parts.bus = bus_;
    agent_ = std::make_unique<Agent>(options_, std::move(parts));
    ASSERT_TRUE(agent_->Start());
  }

  void StartAndConnect() {
    Start();
    link_.listener->OnLinkUp(1);
    calls_.clear();
    link_.sent.clear();
    link_.last_id = 0;
    out_.str("");
  }

  std::function<Agent::TimePoint()> Now() {
    return [this] { return Agent::TimePoint(loop_.now()); };
  }

  void AdapterPublishes(const std::string& name, unsigned long long tag,
                        const Json::Value& payload = Json::Value("p")) {
    adapter_->SignalPushMessage(name, payload, "1.0", tag);
  }

  void CloudSends(const std::string& name, const std::string& payload) {
    InboundRequest request;
    request.topic = "cameras/CAM1/request/" + name;
    request.payload = payload;
    request.size = payload.size();
    request.received_at = Now()();
    requests_->Add(&request);
    loop_.Run();
  }

  void BusDelivers(const std::string& topic) {
    agent_->OnBusMessage(tarvex::DpMessage{topic, ""},
                         [this, topic] { calls_.push_back("Deliver " + topic); });
  }

  /// The lines printed, without their times.
  std::string Printed() {
    std::istringstream lines(out_.str());
    std::string line;
    std::string all;
    while (std::getline(lines, line)) {
      all += line.substr(20) + "\n";
    }
    return all;
  }

  PictureStore::Options PictureOptions() const {
    PictureStore::Options options;
    options.directory = (directory_.path() / "pictures").string();
    options.url = "http://camera";
    return options;
  }

  /// Has the adapter ask for a copy of a picture, as it does before it publishes.
  std::string AdapterStoresPicture() {
    std::string error;
    pictures_.Open(&error);
    const std::string source = (directory_.path() / "source.jpg").string();
    std::ofstream(source) << "light";
    return adapter_->image_function(source, "a.jpg");
  }

  std::size_t PicturesKept() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path() / "pictures")) {
      count += entry.path().extension() == ".jpg" ? 1U : 0U;
    }
    return count;
  }

  Calls calls_;
  FakeLoop loop_;
  FakeLink link_{&calls_};
  std::size_t max_requests_ = 10;
  std::unique_ptr<RequestLine> requests_;
  FakeAdapter* adapter_ = new FakeAdapter(&calls_);
  TempDirectory directory_;
  PictureStore pictures_{PictureOptions()};
  std::ostringstream out_;
  Screen screen_{&out_};
  boost::shared_ptr<FakeBus> bus_{new FakeBus};
  Agent::Options options_;
  std::unique_ptr<Agent> agent_;
};

TEST_F(AgentTest, TakesTheAdapterThroughItsLifeInOrder) {
  Start();
  EXPECT_THAT(calls_, ElementsAre("create", "Initialize", "GetMessageNames", "Start link"));
  calls_.clear();
  agent_->Shutdown();
  EXPECT_THAT(calls_, ElementsAre(R"(Stop link, cameras/CAM1/status retained {"online":false})",
                                  "destroy"));
}

TEST_F(AgentTest, GoesOnWithAnAdapterThatIsNotCompletelyInitialised) {
  adapter_->initialize_result = 1;
  Start();
  EXPECT_THAT(calls_, Contains("Start link"));
}

TEST_F(AgentTest, DoesNotStartWithoutAnAdapter) {
  delete adapter_;
  Agent::Parts parts;
  parts.post = loop_.Post();
  parts.post_after = loop_.PostAfter();
  parts.create_adapter = [] { return AdapterPtr(); };
  parts.now = Now();
  parts.link = &link_;
  EXPECT_FALSE(Agent(options_, std::move(parts)).Start());
  EXPECT_THAT(calls_, ElementsAre());
}

TEST_F(AgentTest, TellsTheAdapterAndTheCloudThatTheLinkStands) {
  Start();
  calls_.clear();
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(calls_, ElementsAre("Connected", "Subscribe get_sn", "Subscribe ivs_result"));
  ASSERT_EQ(link_.sent.size(), 1U);
  EXPECT_THAT(link_.sent[0], HasSubstr("cameras/CAM1/status retained {"));
  EXPECT_THAT(link_.sent[0], HasSubstr(R"("online":true)"));
  EXPECT_EQ(Printed(), "broker connected\n");
}

TEST_F(AgentTest, AssertsThatItIsOnlineAfterEveryConnection) {
  StartAndConnect();
  link_.listener->OnLinkDown("why");
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, Contains(HasSubstr(R"("connections":2)")));
}

TEST_F(AgentTest, ListensToTheDeviceOnlyWhileTheLinkStands) {
  StartAndConnect();
  link_.listener->OnLinkDown("why");
  EXPECT_THAT(calls_, ElementsAre("Unsubscribe get_sn", "Unsubscribe ivs_result", "Disconnected"));
  calls_.clear();
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(calls_, ElementsAre("Connected", "Subscribe get_sn", "Subscribe ivs_result"));
}

TEST_F(AgentTest, SubscribesAgainToWhatTheDeviceRefused) {
  options_.ack_timeout_s = 3600;
  adapter_->refused_name = "ivs_result";
  StartAndConnect();
  loop_.Advance(std::chrono::seconds(5));
  EXPECT_THAT(calls_, ElementsAre("Subscribe ivs_result"));
  adapter_->refused_name.clear();
  loop_.Advance(std::chrono::seconds(5));
  calls_.clear();
  loop_.Advance(std::chrono::seconds(60));
  EXPECT_THAT(calls_, ElementsAre());
}

TEST_F(AgentTest, CountsConnectionsOnWhichNoRequestCanArrive) {
  Start();
  link_.listener->OnLinkUp(0x87);
  EXPECT_EQ(agent_->Counters().subscriptions_refused, 1U);
}

TEST_F(AgentTest, PublishesWhatTheAdapterPushes) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  EXPECT_THAT(link_.sent, ElementsAre(R"(cameras/CAM1/message/get_sn )"
                                      R"({"payload":"p","tag":25,"version":"1.0"})"));
}

TEST_F(AgentTest, TellsTheAdapterOfAnAcknowledgementOnlyWhenItArrives) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  EXPECT_THAT(calls_, ElementsAre());
  EXPECT_EQ(Printed(), "");
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(calls_, ElementsAre("Published 25"));
  EXPECT_EQ(Printed(), "get_sn tag 25 \"p\": acknowledged\n");
}

TEST_F(AgentTest, TakesNoMatchingSubscribersForAnAcknowledgement) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  link_.listener->OnAcknowledged(1, 0x10);
  EXPECT_THAT(calls_, ElementsAre("Published 25"));
}

TEST_F(AgentTest, LeavesAResultThatNobodyHeardInTheStoreAndHoldsTheNextBack) {
  StartAndConnect();
  BusDelivers("BUS_SRV_IVS_RESULT");
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0x10);
  BusDelivers("BUS_SRV_IVS_RESULT");
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Deliver BUS_SRV_IVS_RESULT"));
  EXPECT_EQ(Printed(), "ivs_result tag 11 \"p\": heard by nobody\n");
  EXPECT_EQ(agent_->Counters().delivery.results_unheard, 1U);
}

TEST_F(AgentTest, OffersAStoredResultUntilSomebodyListens) {
  bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":90}})";
  StartAndConnect();
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0x10);
  loop_.Advance(std::chrono::seconds(10));
  EXPECT_THAT(calls_, ElementsAre(HasSubstr(R"("enable":"push","max_count":1,)")));
}

TEST_F(AgentTest, RemovesThePicturesOfWhatTheCloudDoesNotHave) {
  StartAndConnect();
  EXPECT_NE(AdapterStoresPicture(), "");
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0x10);
  EXPECT_EQ(PicturesKept(), 0U);
  AdapterStoresPicture();
  AdapterPublishes("ivs_result", 16);
  link_.listener->OnAcknowledged(2, 0x87);
  EXPECT_EQ(PicturesKept(), 0U);
}

TEST_F(AgentTest, KeepsThePicturesOfWhatTheCloudHasOrMayHave) {
  StartAndConnect();
  AdapterStoresPicture();
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0);
  AdapterStoresPicture();
  AdapterPublishes("snapshot", 15);
  link_.listener->OnAcknowledged(2, 0x10);
  AdapterStoresPicture();
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnLinkDown("why");
  EXPECT_EQ(PicturesKept(), 3U);
}

TEST_F(AgentTest, DoesNotConfirmWhatTheBrokerRefuses) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  link_.listener->OnAcknowledged(1, 0x87);
  EXPECT_THAT(calls_, ElementsAre());
  EXPECT_EQ(Printed(), "get_sn tag 25 \"p\": refused by the broker\n");
  EXPECT_EQ(agent_->Counters().refused_by_broker, 1U);
}

TEST_F(AgentTest, CountsWhatIsPublishedWithoutALinkAndKeepsNothing) {
  Start();
  out_.str("");
  AdapterPublishes("get_sn", 25);
  EXPECT_EQ(Printed(), "get_sn tag 25 \"p\": not sent: link down\n");
  EXPECT_EQ(agent_->Counters().dropped_link_down, 1U);
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, Not(Contains(StartsWith("cameras/CAM1/message/"))));
}

TEST_F(AgentTest, NeverConfirmsWhatWasUnderWayWhenTheLinkBroke) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  link_.listener->OnLinkDown("why");
  link_.listener->OnLinkUp(1);
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(calls_, Not(Contains("Published 25")));
  EXPECT_EQ(Printed(),
            "get_sn tag 25 \"p\": not acknowledged: link lost\n"
            "broker lost: why\n"
            "broker connected\n");
  EXPECT_EQ(agent_->Counters().delivery.ignored_acks, 1U);
}

TEST_F(AgentTest, CountsWhatTheLinkHasNoRoomForOrCannotPublish) {
  StartAndConnect();
  for (int i = 0; i < 256; ++i) {
    AdapterPublishes("get_sn", 25);
  }
  EXPECT_EQ(agent_->Counters().dropped_backlog_full, 0U);
  AdapterPublishes("get_sn", 25);
  link_.listener->OnAcknowledged(1, 0);
  link_.result = PublishResult::kRefused;
  AdapterPublishes("get_sn", 25);
  EXPECT_EQ(agent_->Counters().dropped_backlog_full, 1U);
  EXPECT_EQ(agent_->Counters().dropped_not_publishable, 1U);
  EXPECT_EQ(agent_->Counters().published, 256U);
}

TEST_F(AgentTest, HandsOverOneResultAtATime) {
  StartAndConnect();
  BusDelivers("BUS_SRV_IVS_RESULT");
  AdapterPublishes("ivs_result", 11);
  BusDelivers("BUS_SRV_IVS_RESULT");
  BusDelivers("EVS_RS485_READ");
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Deliver BUS_SRV_IVS_RESULT", "Deliver EVS_RS485_READ"));
  EXPECT_EQ(agent_->Counters().results_waiting, 1U);
  calls_.clear();
  link_.listener->OnAcknowledged(1, 0);
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Published 11", "Deliver BUS_SRV_IVS_RESULT"));
}

TEST_F(AgentTest, GoesOnWithTheNextResultWhenOneCouldNotBeSent) {
  StartAndConnect();
  link_.result = PublishResult::kRefused;
  BusDelivers("BUS_SRV_IVS_RESULT");
  BusDelivers("BUS_SRV_IVS_RESULT");
  AdapterPublishes("ivs_result", 11);
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Deliver BUS_SRV_IVS_RESULT", "Deliver BUS_SRV_IVS_RESULT"));
  EXPECT_EQ(agent_->Counters().delivery.results_without_publication, 1U);  // the second, so far
}

TEST_F(AgentTest, DropsASecondRedeliveredRecordUnderWay) {
  StartAndConnect();
  AdapterPublishes("ivs_result", 16);
  AdapterPublishes("ivs_result", 16);
  EXPECT_EQ(link_.sent.size(), 1U);
  EXPECT_EQ(agent_->Counters().delivery.dropped_offline_busy, 1U);
}

TEST_F(AgentTest, WithholdsAConfirmationAfterTheCloudStoppedTheRedelivery) {
  StartAndConnect();
  AdapterPublishes("ivs_result", 16);
  CloudSends("check_offline_record", R"({"version":"1.0","payload":{"body":{"enable":"stop"}}})");
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(calls_, Not(Contains("Published 16")));
  EXPECT_EQ(agent_->Counters().delivery.withheld_acks, 1U);
}

TEST_F(AgentTest, AnswersARequest) {
  StartAndConnect();
  CloudSends("get_sn", R"({"id":"r1","version":"1.0","payload":{"type":"get_sn"}})");
  EXPECT_THAT(calls_, ElementsAre(R"(Request get_sn {"type":"get_sn"})"));
  EXPECT_THAT(link_.sent,
              ElementsAre(R"(cameras/CAM1/response/get_sn )"
                          R"({"id":"r1","response":null,"result":true,"waited_ms":0})"));
}

TEST_F(AgentTest, GivesTheAnswersMessageTheIdOfItsRequest) {
  StartAndConnect();
  adapter_->on_request = [this] { AdapterPublishes("get_sn", 25, Json::Value("S1")); };
  CloudSends("get_sn", R"({"id":"r1","version":"1.0","payload":{}})");
  EXPECT_THAT(link_.sent, ElementsAre(R"(cameras/CAM1/message/get_sn )"
                                      R"({"id":"r1","payload":"S1","tag":25,"version":"1.0"})",
                                      R"(cameras/CAM1/response/get_sn )"
                                      R"({"answer":"S1","id":"r1","response":null,"result":true,)"
                                      R"("waited_ms":0})"));
}

TEST_F(AgentTest, DropsNoAnswerBecauseTheBrokerIsSlow) {
  max_requests_ = 1000;
  StartAndConnect();
  adapter_->on_request = [this] { AdapterPublishes("get_sn", 25, Json::Value("S1")); };
  for (int i = 0; i < 300; ++i) {
    CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  }
  EXPECT_EQ(link_.sent.size(), 512U);  // 256 answers are owed for
  for (std::uint64_t id = 1; id <= link_.last_id; ++id) {
    link_.listener->OnAcknowledged(id, 0);
    loop_.Run();
  }
  EXPECT_EQ(link_.sent.size(), 600U);
  EXPECT_EQ(agent_->Counters().dropped_backlog_full, 0U);
}

TEST_F(AgentTest, GoesOnWithTheRequestsThatWaitedForABrokerThatIsGone) {
  max_requests_ = 1000;
  StartAndConnect();
  adapter_->on_request = [this] { AdapterPublishes("get_sn", 25); };
  for (int i = 0; i < 300; ++i) {
    CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  }
  link_.listener->OnLinkDown("why");
  loop_.Run();
  EXPECT_EQ(agent_->Counters().requests, 300U);
}

TEST_F(AgentTest, AnswersARequestThatTheAdapterThrowsAt) {
  StartAndConnect();
  adapter_->on_request = [] { throw std::runtime_error("no reason"); };
  CloudSends("get_sn", R"({"id":"x","version":"1.0","payload":{}})");
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("code":"failed")")));
}

TEST_F(AgentTest, TellsWhatTheBusSaidToARequest) {
  options_.requests.diagnose = true;
  StartAndConnect();
  adapter_->on_request = [this] {
    tarvex::BusRequest request;
    request.queue = "SS_BUS_REQUEST";
    agent_->OnBusRequest(request);
  };
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("queue":"SS_BUS_REQUEST")")));
}

TEST_F(AgentTest, TellsWhetherTheDeviceIsThere) {
  StartAndConnect();
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("device":false)")));
  link_.sent.clear();
  tarvex::BusRequest request;
  request.queue = "BUS_GET_IVS_INFO";
  request.outcome = tarvex::BusOutcome::kAnswered;
  agent_->OnBusRequest(request);
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("device":true)")));
}

TEST_F(AgentTest, LeavesABrokerThatOwesAnAcknowledgementForTooLong) {
  options_.ack_timeout_s = 15;
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  loop_.Advance(std::chrono::seconds(15));
  EXPECT_THAT(calls_, ElementsAre());
  loop_.Advance(std::chrono::seconds(1));
  EXPECT_THAT(calls_, ElementsAre("Drop link, no acknowledgement of a message in 15 s"));
}

TEST_F(AgentTest, KnowsTheRequestsOfItsAdapterOnly) {
  StartAndConnect();
  CloudSends("gpio_out", R"({"version":"1.0","payload":{}})");
  EXPECT_THAT(calls_, ElementsAre());
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr("unknown request")));
}

TEST_F(AgentTest, CountsRequestsAndThoseTurnedAway) {
  max_requests_ = 0;
  StartAndConnect();
  CloudSends("get_sn", R"({"version":"1.0","payload":{}})");
  EXPECT_EQ(agent_->Counters().requests, 1U);
  EXPECT_EQ(agent_->Counters().request_errors, 1U);
}

TEST_F(AgentTest, RefreshesItsStatusWhileTheLinkStands) {
  StartAndConnect();
  bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":9}})";
  loop_.Advance(std::chrono::seconds(10));
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("undelivered":{"count":4,"oldest_age_s":9})")));
  link_.sent.clear();
  link_.listener->OnLinkDown("why");
  loop_.Advance(std::chrono::seconds(30));
  EXPECT_THAT(link_.sent, ElementsAre());
}

TEST_F(AgentTest, LendsTheAdapterAnImageFunctionThatSurvivesNonsense) {
  Start();
  EXPECT_EQ(adapter_->image_function("/no/such/picture", "../x"), "");
}

TEST_F(AgentTest, AsksForRedeliveryByItselfOnlyWhenToldTo) {
  options_.ack_timeout_s = 3600;
  bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":90}})";
  StartAndConnect();
  loop_.Advance(std::chrono::seconds(60));
  EXPECT_THAT(calls_, ElementsAre());
}

class AutoPushingAgent : public AgentTest {
 protected:
  AutoPushingAgent() {
    options_.auto_push = true;
    options_.clock_scale = 6.0;  // the pause of six seconds is one second
    bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":0}})";
  }
};

TEST_F(AutoPushingAgent, AsksForRedeliveryAfterAReconnection) {
  StartAndConnect();
  loop_.Advance(std::chrono::milliseconds(1000));
  EXPECT_THAT(calls_, ElementsAre(R"(Request check_offline_record {"body":{"enable":"push",)"
                                  R"("max_count":1000000,"min_id":0},)"
                                  R"("type":"check_offline_record"})"));
}

TEST_F(AutoPushingAgent, LeavesARedeliveryAloneThatGoesOnByItself) {
  StartAndConnect();
  for (std::uint64_t record = 1; record <= 5; ++record) {
    AdapterPublishes("ivs_result", 16);
    loop_.Advance(std::chrono::milliseconds(900));
    link_.listener->OnAcknowledged(record, 0);
    loop_.Advance(std::chrono::milliseconds(900));
  }
  EXPECT_THAT(calls_, Not(Contains(HasSubstr("Request"))));
}

}  // namespace
}  // namespace agent
