// An agent between an adapter, a link and a bus that do as a test says.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "cloud_agent/agent.h"
#include "fake_bus.h"
#include "json_text.h"
#include "support/fake_loop.h"
#include "support/temp_directory.h"

namespace agent {

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
    on_published();
  }

  int initialize_result = 0;
  std::function<void()> on_request = [] {};
  std::function<void()> on_published = [] {};
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
  AgentTest() { options_.requests.topics = {"cameras/CAM1", ""}; }

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
    parts.trace = trace_;
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

  void BusDelivers(const std::string& topic, const std::string& body = "") {
    agent_->OnBusMessage(tarvex::DpMessage{topic, body},
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
  AgentTrace* trace_ = nullptr;
  std::unique_ptr<Agent> agent_;
};

}  // namespace agent
