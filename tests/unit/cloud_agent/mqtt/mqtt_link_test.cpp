#include "cloud_agent/mqtt/mqtt_link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <array>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "mqtt/scripted_broker.h"
#include "support/mqtt_bytes.h"
#include "support/wait_until.h"

namespace agent {
namespace {

using ::testing::HasSubstr;

/// The event thread: reads sockets and runs what was posted when the test says so.
class TaskQueue {
 public:
  boost::asio::io_context& context() { return context_; }

  void Post(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(task));
    boost::asio::post(context_, [] {});
  }

  /// @return false when fewer tasks than that wait after ten seconds.
  bool HoldsSoon(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Waiting() < count && std::chrono::steady_clock::now() < deadline) {
      context_.run_one_until(deadline);
    }
    return Waiting() >= count;
  }

  /// Runs one task, waiting for it if need be.
  /// @return false when none came in ten seconds.
  bool RunOne() {
    if (!HoldsSoon(1)) {
      return false;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    lock.unlock();
    task();
    return true;
  }

  std::size_t Waiting() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return tasks_.size();
  }

 private:
  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      context_.get_executor()};
  std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
};

OutboundMessage Message(const std::string& topic, const std::string& payload) {
  OutboundMessage message;
  message.topic = topic;
  message.payload = payload;
  return message;
}

class LinkTest : public ::testing::Test, private LinkListener {
 protected:
  LinkTest() {
    options_.broker.addresses = {{"127.0.0.1", broker_.port()}};
    options_.broker.client_id = "CAM1";
    options_.broker.will_topic = "cameras/CAM1/status";
    options_.broker.will_payload = "gone";
    options_.broker.request_filter = "cameras/CAM1/request/#";
    options_.broker.max_request_bytes = 50;
    options_.backoff_min_ms = 1;
    options_.backoff_max_ms = 20;
  }

  void StartLink() {
    link_ = std::make_unique<MqttLink>(
        options_, queue_.context(),
        [this](std::function<void()> task) { queue_.Post(std::move(task)); },
        [this](InboundRequest request) {
          const std::string payload = request.payload;
          queue_.Post([this, request = std::move(request)] {
            requests_.push_back(request);
            heard_.push_back("request " + request.topic + " " + request.payload);
          });
          return payload == "too much" ? std::vector<OutboundMessage>{Message("refused", payload)}
                                       : std::vector<OutboundMessage>();
        });
    link_->Start(this);
  }

  /// Starts the link and lets it in; the event thread knows of it.
  BrokerSession Connected() {
    StartLink();
    BrokerSession session = broker_.Accept();
    session.LetIn();
    EXPECT_EQ(Heard(), "up");
    return session;
  }

  /// What the listener hears next.
  std::string Heard() {
    while (heard_.empty() && queue_.RunOne()) {
    }
    if (heard_.empty()) {
      return "nothing";
    }
    const std::string first = heard_.front();
    heard_.pop_front();
    return first;
  }

  void OnLinkUp(int subscription_code) override {
    heard_.push_back(subscription_code < kFirstFailureCode ? "up" : "up without requests");
  }
  void OnLinkDown(const std::string& reason) override {
    heard_.push_back("down");
    reason_ = reason;
  }
  void OnAcknowledged(std::uint64_t publication, int reason_code) override {
    heard_.push_back("acknowledged " + std::to_string(publication) + " " +
                     std::to_string(reason_code));
  }

  /// What is in the log of what is done.
  static std::string LogOf(const std::function<void()>& deed) {
    testing::internal::CaptureStderr();
    deed();
    return testing::internal::GetCapturedStderr();
  }

  ScriptedBroker broker_;
  ScriptedBroker silent_;  // until a test has it say something
  TaskQueue queue_;
  MqttLink::Options options_;
  std::deque<std::string> heard_;
  std::string reason_;
  std::vector<InboundRequest> requests_;
  std::unique_ptr<MqttLink> link_;  // the first to go
};

TEST_F(LinkTest, ConnectsCleanlyWithAWillAndSubscribesToNewRequestsOnly) {
  options_.broker.username = "cam";
  options_.broker.password = "secret";
  StartLink();
  BrokerSession session = broker_.Accept();
  const ReadConnect connect = session.ExpectConnect();
  EXPECT_TRUE(connect.clean_start);
  EXPECT_TRUE(connect.will_retain);
  EXPECT_EQ(connect.keep_alive_s, 10);
  EXPECT_EQ(connect.client_id, "CAM1");
  EXPECT_EQ(connect.will_topic, "cameras/CAM1/status");
  EXPECT_EQ(connect.will_payload, "gone");
  EXPECT_EQ(connect.username, "cam");
  EXPECT_EQ(connect.password, "secret");
  session.SendConnack(0);
  // QoS 1, no local messages, retain as published, no retained messages.
  EXPECT_EQ(session.ExpectSubscribe(), "cameras/CAM1/request/# 45");
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, ReportsTheAcknowledgementOfEachPublication) {
  BrokerSession session = Connected();
  const Publication first = link_->Publish(Message("t", "one"));
  const Publication second = link_->Publish(Message("t", "two"));
  ASSERT_EQ(first.result, PublishResult::kAccepted);
  const int first_id = session.ExpectPublish().message_id;
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.topic, "t");
  EXPECT_EQ(publish.payload, "two");
  session.SendPuback(publish.message_id, 0x87);
  session.SendPuback(first_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(second.id) + " 135");
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(first.id) + " 0");
}

TEST_F(LinkTest, PublishesNothingBeforeItStands) {
  StartLink();
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kLinkDown);
}

TEST_F(LinkTest, PublishesNothingBeforeTheEventThreadKnowsOfTheConnection) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.LetIn();
  ASSERT_TRUE(queue_.HoldsSoon(1));
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kLinkDown);
  EXPECT_EQ(Heard(), "up");
  EXPECT_EQ(link_->Publish(Message("t", "one")).result, PublishResult::kAccepted);
}

TEST_F(LinkTest, TellsWhenTheSubscriptionIsRefused) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.ExpectConnect();
  session.SendConnack(0);
  session.ExpectSubscribe(0x87);
  EXPECT_EQ(Heard(), "up without requests");
}

TEST_F(LinkTest, LeavesABrokerThatNeverAnswersTheSubscription) {
  options_.broker.answer_timeout_s = 1;
  StartLink();
  {
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0);
    EXPECT_EQ(session.Read().type, 8);
    EXPECT_THROW(session.Read(), std::runtime_error);  // the connection is closed
  }
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, ComesBackByItselfAndNeverSendsAgainWhatWasUnderWay) {
  const Publication lost = [this] {
    BrokerSession session = Connected();
    const Publication publication = link_->Publish(Message("t", "lost"));
    session.ExpectPublish();
    return publication;
  }();
  EXPECT_EQ(Heard(), "down");
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
  const Publication next = link_->Publish(Message("t", "next"));
  EXPECT_NE(next.id, lost.id);
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.payload, "next");
  session.SendPuback(publish.message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(next.id) + " 0");
}

TEST_F(LinkTest, RefusesWhatCannotBePublished) {
  BrokerSession session = Connected();
  EXPECT_EQ(link_->Publish(Message("t/#", "1")).result, PublishResult::kRefused);
}

TEST_F(LinkTest, HandsOverARequestWithWhatItsAnswerNeeds) {
  BrokerSession session = Connected();
  const std::string properties =
      "\x08" + MqttString("my/answers") + "\x09" + MqttString(std::string("\0c", 2));
  session.SendPublish("cameras/CAM1/request/get_sn", "{}", properties, true);
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn {}");
  EXPECT_EQ(requests_[0].size, 2U);
  EXPECT_TRUE(requests_[0].retained);
  EXPECT_EQ(requests_[0].response_topic, "my/answers");
  EXPECT_TRUE(requests_[0].has_correlation_data);
  EXPECT_EQ(requests_[0].correlation_data, std::string("\0c", 2));
}

TEST_F(LinkTest, HandsOverAnEmptyRequest) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "");
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn ");
  EXPECT_FALSE(requests_[0].has_correlation_data);
  EXPECT_FALSE(requests_[0].retained);
}

TEST_F(LinkTest, KeepsOfARequestThatIsTooLargeItsSizeAndBeginning) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", std::string(2000, 'x'));
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn " + std::string(1024, 'x'));
  EXPECT_EQ(requests_[0].size, 2000U);
}

TEST_F(LinkTest, HandsOverWhenAMessageExpires) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "a");
  session.SendPublish("cameras/CAM1/request/get_sn", "b", std::string("\x02\0\0\x01\x02", 5));
  Heard();
  Heard();
  EXPECT_FALSE(requests_[0].expires_in);
  EXPECT_EQ(requests_[1].expires_in, std::chrono::seconds(258));
  EXPECT_GE(requests_[1].received_at, requests_[0].received_at);
}

TEST_F(LinkTest, SendsWhatIsToBeSentAtOnce) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "too much");
  const ReadPublish refusal = session.ExpectPublish();
  EXPECT_EQ(refusal.topic + " " + refusal.payload, "refused too much");
}

TEST_F(LinkTest, SendsCorrelationDataWhereAMessageHasSome) {
  BrokerSession session = Connected();
  OutboundMessage message = Message("my/answers", "{}");
  message.has_correlation_data = true;
  message.correlation_data = std::string("\0c", 2);
  link_->Publish(message);
  EXPECT_EQ(session.ExpectPublish().properties, "\x09" + MqttString(message.correlation_data));
}

TEST_F(LinkTest, KeepsTryingWhenTheBrokerRefuses) {
  StartLink();
  for (int attempt = 0; attempt < 3; ++attempt) {
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0x86);
  }
  BrokerSession session = broker_.Accept();
  session.LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, DropsAConnectionForTheReasonGiven) {
  BrokerSession session = Connected();
  link_->Drop("enough");
  EXPECT_EQ(Heard(), "down");
  EXPECT_EQ(reason_, "enough");
}

TEST_F(LinkTest, SaysThatAnotherClientUsesItsClientId) {
  BrokerSession session = Connected();
  session.SendDisconnect(0x8E);
  EXPECT_EQ(Heard(), "down");
  EXPECT_THAT(reason_, HasSubstr("another client has connected as CAM1"));
  EXPECT_THAT(reason_, HasSubstr("--client-id"));
}

TEST_F(LinkTest, SuspectsAnotherClientBehindConnectionsThatDoNotLast) {
  testing::internal::CaptureStderr();
  StartLink();
  for (int attempt = 0; attempt < 3; ++attempt) {
    broker_.Accept().LetIn();
    EXPECT_EQ(Heard(), "up");
    EXPECT_EQ(Heard(), "down");
  }
  BrokerSession session = broker_.Accept();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("3 connections in a row did not last: another client may use the "
                             "client id CAM1"));
  EXPECT_THAT(log, testing::Not(HasSubstr("2 connections in a row")));
}

TEST_F(LinkTest, ToldOfARefusalOfItsOwnReportsNoAcknowledgement) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "too much");
  session.SendPuback(session.ExpectPublish().message_id, 0);
  Heard();
  const Publication publication = link_->Publish(Message("t", "two"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(publication.id) + " 0");
}

TEST_F(LinkTest, TakesRequestsWhileTheEventThreadIsBusy) {
  BrokerSession session = Connected();
  session.SendPublish("cameras/CAM1/request/get_sn", "text");
  EXPECT_TRUE(WaitUntil([this] { return queue_.Waiting() == 1; }));
}

TEST_F(LinkTest, SaysGoodbyeWithItsLastMessage) {
  BrokerSession session = Connected();
  std::thread stopping([this] {
    OutboundMessage last = Message("cameras/CAM1/status", "bye");
    last.retain = true;
    link_->Stop(last);
  });
  const ReadPublish publish = session.ExpectPublish();
  EXPECT_EQ(publish.payload, "bye");
  EXPECT_TRUE(publish.retain);
  session.SendPuback(publish.message_id, 0);
  const MqttPacket disconnect = session.Read();
  EXPECT_EQ(disconnect.type, 14);
  EXPECT_TRUE(disconnect.body.empty() || disconnect.body[0] == 0) << "the will would be sent";
  stopping.join();
}

TEST_F(LinkTest, ReportsNothingAfterItWasStopped) {
  BrokerSession session = Connected();
  link_->Publish(Message("t", "one"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  ASSERT_TRUE(queue_.HoldsSoon(1));
  link_->Stop(Message("t", "bye"));
  EXPECT_EQ(link_->Publish(Message("t", "two")).result, PublishResult::kLinkDown);
  queue_.Post([this] { heard_.push_back("end"); });
  EXPECT_EQ(Heard(), "end");
}

TEST_F(LinkTest, EndsWhileItWaitsForABrokerThatNeverAnswers) {
  StartLink();
  BrokerSession session = broker_.Accept();
  session.ExpectConnect();
  link_->Stop(Message("t", "bye"));
}

TEST_F(LinkTest, TriesItsAddressesInTurnWithoutDelay) {
  options_.backoff_min_ms = options_.backoff_max_ms = 3600000;
  options_.broker.version = MqttVersion::k5;
  options_.broker.addresses = {{"127.0.0.1", silent_.port()}, {"127.0.0.1", broker_.port()}};
  StartLink();
  silent_.Accept().Close();
  broker_.Accept().LetIn();
  EXPECT_EQ(Heard(), "up");
}

TEST_F(LinkTest, BeginsWithTheAddressThatWorked) {
  options_.broker.version = MqttVersion::k5;
  options_.broker.addresses = {{"127.0.0.1", silent_.port()}, {"127.0.0.1", broker_.port()}};
  StartLink();
  silent_.Accept().Close();
  broker_.Accept().LetIn();
  EXPECT_EQ(Heard(), "up");
  EXPECT_EQ(Heard(), "down");
  broker_.Accept().LetIn();
  EXPECT_EQ(Heard(), "up");
  EXPECT_FALSE(silent_.HasCaller());
}

TEST_F(LinkTest, SaysWhichBrokerALineOfTheLogIsAbout) {
  options_.broker.addresses = {{"127.0.0.1", silent_.port()}, {"127.0.0.1", broker_.port()}};
  options_.broker.version = MqttVersion::k5;
  const std::string log = LogOf([this] {
    StartLink();
    {
      BrokerSession session = silent_.Accept();
      session.ExpectConnect();
      session.SendConnack(0x87);
    }
    broker_.Accept().LetIn();
    EXPECT_EQ(Heard(), "up");
    EXPECT_EQ(Heard(), "down");
  });
  const std::string first = "127.0.0.1:" + std::to_string(silent_.port());
  const std::string second = "127.0.0.1:" + std::to_string(broker_.port());
  EXPECT_THAT(log, HasSubstr("no connection to " + first +
                             ": the broker refuses: Not authorized (0x87); look at --username"));
  EXPECT_THAT(log, HasSubstr("trying " + second));
  EXPECT_THAT(log, HasSubstr("connected to " + second + " as CAM1, with MQTT 5"));
}

TEST_F(LinkTest, LeavesABrokerThatNeverAnswersConnect) {
  options_.broker.answer_timeout_s = 1;
  const std::string log = LogOf([this] {
    StartLink();
    BrokerSession silent = broker_.Accept();
    EXPECT_EQ(silent.ExpectConnect().version, 5);
    BrokerSession session = broker_.Accept();
    EXPECT_EQ(session.ExpectConnect().version, 5) << "silence says nothing of the version";
    session.SendConnack(0);
    session.ExpectSubscribe();
    EXPECT_EQ(Heard(), "up");
  });
  EXPECT_THAT(log, HasSubstr("takes the connection and does not answer CONNECT in 1 s; look "));
}

TEST_F(LinkTest, SaysThatASubscriptionIsNotAnswered) {
  options_.broker.answer_timeout_s = 1;
  const std::string log = LogOf([this] {
    StartLink();
    BrokerSession session = broker_.Accept();
    session.ExpectConnect();
    session.SendConnack(0);
    broker_.Accept();
  });
  EXPECT_THAT(log,
              HasSubstr("does not answer the subscription to requests in 1 s; look at its load"));
}

TEST_F(LinkTest, SaysThatTheConnectionEndsOnTheSubscription) {
  const std::string log = LogOf([this] {
    StartLink();
    {
      BrokerSession session = broker_.Accept();
      session.ExpectConnect();
      session.SendConnack(0);
      EXPECT_EQ(session.Read().type, 8);
    }
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("the broker ends the connection on the subscription to requests"));
}

TEST_F(LinkTest, SaysThatTlsDoesNotBegin) {
  options_.broker.answer_timeout_s = 1;
  options_.broker.use_tls = true;
  const std::string log = LogOf([this] {
    StartLink();
    BrokerSession silent = broker_.Accept();
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("takes the connection and does not begin TLS in 1 s; look whether"));
}

/// Takes no connection: its queue is full.
class FullListener {
 public:
  FullListener() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const any_address = reinterpret_cast<sockaddr*>(&address);
    if (bind(sockets_[0], any_address, length) != 0 || listen(sockets_[0], 0) != 0 ||
        getsockname(sockets_[0], any_address, &length) != 0) {
      throw std::runtime_error("the full listener cannot listen");
    }
    port_ = ntohs(address.sin_port);
    for (std::size_t i = 1; i < sockets_.size(); ++i) {
      connect(sockets_[i], any_address, length);
    }
  }
  ~FullListener() {
    for (const int socket : sockets_) {
      close(socket);
    }
  }
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;

  int port() const { return port_; }

 private:
  static int NewSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

  std::array<int, 4> sockets_ = {NewSocket(), NewSocket(), NewSocket(), NewSocket()};
  int port_ = 0;
};

class LinkToAFullListener : public LinkTest, public ::testing::WithParamInterface<bool> {};

TEST_P(LinkToAFullListener, SaysThatThereIsNoTcpConnection) {
  const FullListener full;
  options_.broker.use_tls = GetParam();
  options_.broker.answer_timeout_s = 1;
  options_.broker.addresses = {{"127.0.0.1", full.port()}, {"127.0.0.1", broker_.port()}};
  const std::string log = LogOf([this] {
    StartLink();
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("no TCP connection in 1 s; look at the address"));
}

INSTANTIATE_TEST_SUITE_P(, LinkToAFullListener, ::testing::Bool(),
                         [](const auto& use_tls) { return use_tls.param ? "Tls" : "Plain"; });

// The version of MQTT.

class LinkVersionTest : public LinkTest {
 protected:
  /// Reads the next CONNECT, which is of this version.
  BrokerSession Expect(int version) {
    BrokerSession session = broker_.Accept();
    EXPECT_EQ(session.ExpectConnect().version, version);
    return session;
  }

  /// Reads the next CONNECT, lets the agent in, and ends the connection.
  void LetInOnce(int version) {
    BrokerSession session = Expect(version);
    session.SendConnack(0);
    session.ExpectSubscribe();
    EXPECT_EQ(Heard(), "up");
    session.Close();
    EXPECT_EQ(Heard(), "down");
  }

  BrokerSession ConnectedWith311() {
    options_.broker.version = MqttVersion::k311;
    return Connected();
  }
};

TEST_F(LinkVersionTest, Is311ForGoodAfterARefusalOf5) {
  const std::string log = LogOf([this] {
    StartLink();
    Expect(5).SendConnack(0x84);
    LetInOnce(4);
    LetInOnce(4);
  });
  EXPECT_THAT(log, HasSubstr("the broker refuses MQTT 5: Unsupported Protocol Version (0x84); "
                             "from now on it gets MQTT 3.1.1"));
  EXPECT_THAT(log, HasSubstr("with MQTT 3.1.1"));
}

TEST_F(LinkVersionTest, Is311WithoutDelay) {
  options_.backoff_min_ms = options_.backoff_max_ms = 3600000;
  StartLink();
  Expect(5).SendConnack(0x84);
  Expect(4);
}

TEST_F(LinkVersionTest, Is311AfterTheRefusalOfABrokerThatKnowsOnlyThat) {
  StartLink();
  Expect(5).SendConnackOf311(1);
  LetInOnce(4);
  LetInOnce(4);
}

TEST_F(LinkVersionTest, Is311ForABrokerThatAnswersInIt) {
  StartLink();
  Expect(5).SendConnackOf311(0);
  LetInOnce(4);
}

TEST_F(LinkVersionTest, Is311ForGoodWhereConnectOf5EndsTheConnectionTwice) {
  StartLink();
  for (int i = 0; i < 2; ++i) {
    Expect(5).Close();
    LetInOnce(4);
  }
  LetInOnce(4);
}

TEST_F(LinkVersionTest, Is5AgainWhereConnectEndsTheConnectionInAnyVersion) {
  StartLink();
  for (int i = 0; i < 3; ++i) {
    Expect(5).Close();
    Expect(4).Close();
  }
  LetInOnce(5);
}

TEST_F(LinkVersionTest, Stays5OnceTheBrokerHasSpokenIt) {
  StartLink();
  LetInOnce(5);
  for (int i = 0; i < 3; ++i) {
    Expect(5).Close();
  }
  LetInOnce(5);
}

TEST_F(LinkVersionTest, ThatIsGivenIsTheOnlyOne) {
  options_.broker.version = MqttVersion::k5;
  const std::string log = LogOf([this] {
    StartLink();
    Expect(5).SendConnack(0x84);
    Expect(5);
  });
  EXPECT_THAT(log, HasSubstr("leave the version to --mqtt-version auto"));
}

TEST_F(LinkVersionTest, Of311SubscribesWithoutOptionsAndSendsNoProperties) {
  options_.broker.version = MqttVersion::k311;
  StartLink();
  BrokerSession session = Expect(4);
  session.SendConnack(0);
  EXPECT_EQ(session.ExpectSubscribe(), "cameras/CAM1/request/# 1");
  EXPECT_EQ(Heard(), "up");
  OutboundMessage message = Message("t", "{}");
  message.has_correlation_data = true;
  message.correlation_data = "c";
  ASSERT_EQ(link_->Publish(message).result, PublishResult::kAccepted);
  EXPECT_EQ(session.ExpectPublish().payload, "{}");
}

TEST_F(LinkVersionTest, Of311HasAcknowledgementsAndRetainedRequests) {
  BrokerSession session = ConnectedWith311();
  const Publication publication = link_->Publish(Message("t", "one"));
  session.SendPuback(session.ExpectPublish().message_id, 0);
  EXPECT_EQ(Heard(), "acknowledged " + std::to_string(publication.id) + " 0");
  session.SendPublish("cameras/CAM1/request/get_sn", "{}", "", true);
  EXPECT_EQ(Heard(), "request cameras/CAM1/request/get_sn {}");
  EXPECT_TRUE(requests_[0].retained);
  EXPECT_TRUE(requests_[0].response_topic.empty());
}

TEST_F(LinkVersionTest, Of311TellsARefusedSubscription) {
  options_.broker.version = MqttVersion::k311;
  StartLink();
  BrokerSession session = Expect(4);
  session.SendConnack(0);
  session.ExpectSubscribe(0x80);
  EXPECT_EQ(Heard(), "up without requests");
}

TEST_F(LinkVersionTest, Of311SaysWhyItIsNotLetIn) {
  options_.broker.version = MqttVersion::k311;
  const std::string log = LogOf([this] {
    StartLink();
    for (const int code : {2, 3, 4, 5}) {
      Expect(4).SendConnack(code);
    }
    Expect(4);
  });
  EXPECT_THAT(log, HasSubstr("Client Identifier not valid (0x02); give another --client-id"));
  EXPECT_THAT(log, HasSubstr("Server unavailable (0x03)"));
  EXPECT_THAT(log, HasSubstr("Bad User Name or Password (0x04); look at --username"));
  EXPECT_THAT(log, HasSubstr("Not authorized (0x05); look at --username"));
}

TEST_F(LinkVersionTest, Of311TellsADeniedPublicationFromALostLink) {
  const std::string log = LogOf([this] {
    options_.broker.version = MqttVersion::k311;
    StartLink();
    for (int i = 0; i < 2; ++i) {
      BrokerSession session = broker_.Accept();
      session.LetIn();
      EXPECT_EQ(Heard(), "up");
      link_->Publish(Message("a/denied/topic", "{}"));
      session.ExpectPublish();
      session.Close();
      EXPECT_EQ(Heard(), "down");
    }
    LetInOnce(4);
    broker_.Accept();  // after the end of the one before was told
  });
  EXPECT_THAT(log, HasSubstr("the broker ended the connection after a/denied/topic was published, "
                             "and not acknowledged: if that comes again, look at what"));
  EXPECT_THAT(log, HasSubstr("the broker refuses to publish a/denied/topic: it ended 2 connections "
                             "in a row right after that; look at what the broker allows"));
  EXPECT_THAT(log, HasSubstr("The connection was lost"));
}

TEST_F(LinkVersionTest, Of311BlamesNoPublicationThatWasAcknowledged) {
  const std::string log = LogOf([this] {
    BrokerSession session = ConnectedWith311();
    link_->Publish(Message("a/topic", "{}"));
    session.SendPuback(session.ExpectPublish().message_id, 0);
    EXPECT_THAT(Heard(), HasSubstr("acknowledged"));
    session.Close();
    EXPECT_EQ(Heard(), "down");
    broker_.Accept();
  });
  EXPECT_THAT(log, HasSubstr("The connection was lost"));
  EXPECT_THAT(log, testing::Not(HasSubstr("a/topic")));
}

}  // namespace
}  // namespace agent
