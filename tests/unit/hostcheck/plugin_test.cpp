// libhostcheck.so within a host that a test plays, on a platform that is a fake.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include <boost/make_shared.hpp>

#include "base_adapter.h"
#include "fake_platform.h"
#include "hostcheck/plugin_server.h"
#include "hostcheck/wire.h"
#include "support/wait_until.h"

namespace hostcheck {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;

class PluginTest : public ::testing::Test, public sigslot::has_slots<sigslot::single_threaded> {
 protected:
  PluginTest() {
    fake::ResetPlatform();
    setenv(kAddressVariable, ("127.0.0.1:" + std::to_string(server_.port())).c_str(), 1);
    library_ = dlopen(HOSTCHECK_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    create_ = reinterpret_cast<decltype(&create_adapter)>(dlsym(library_, "create_adapter"));
    destroy_ = reinterpret_cast<decltype(&destory_adapter)>(dlsym(library_, "destory_adapter"));
  }

  ~PluginTest() override { destroy_(adapter_); }

  void Start() {
    adapter_ = create_(events_, 0);
    ASSERT_NE(adapter_, nullptr);
    first_thread_ = Told("create_adapter")["thread"];
    adapter_->SignalPushMessage.connect(this, &PluginTest::OnPush);
    adapter_->Initialize([this](const std::string& source, const std::string& name) {
      pictures_.push_back(std::filesystem::exists(source) ? name : "none");
      return source;
    });
    adapter_->SubscribeMessage("ivs_result");
  }

  void OnPush(const std::string& name, const Json::Value& payload, const std::string&,
              unsigned long long) {
    published_.push_back(name + " " + payload[kMarkMember].asString());
  }

  /// The next event of that name, whatever comes before it.
  Json::Value Told(const std::string& name) {
    Json::Value event;
    WaitUntil([&] {
      context_.run_one_for(std::chrono::milliseconds(5));
      while (!told_.empty() && event.isNull()) {
        event = told_.front()["event"] == name ? told_.front() : Json::Value();
        told_.erase(told_.begin());
      }
      return !event.isNull();
    });
    return event;
  }

  void Do(const std::string& what, Json::Value command = Json::objectValue) {
    command["do"] = what;
    server_.Do(command);
    WaitUntil([this] {
      events_->Tick(10);
      context_.run_one_for(std::chrono::milliseconds(5));
      return !told_.empty() && told_.back()["event"] == "done";
    });
  }

  void Recognise(unsigned char plate_id) {
    std::string record(kRecordSize, '\0');
    record[kPlateIdOffset] = static_cast<char>(plate_id);
    fake::ThePlatform().Deliver(kResultTopic, record);
    events_->Tick(0);
  }

  boost::asio::io_context context_{1};
  std::vector<Json::Value> told_;
  PluginServer server_{&context_, "127.0.0.1",
                       [this](const Json::Value& event) { told_.push_back(event); }};
  void* library_ = nullptr;
  decltype(&create_adapter) create_ = nullptr;
  decltype(&destory_adapter) destroy_ = nullptr;
  const boost::shared_ptr<fake::EventService> events_ = boost::make_shared<fake::EventService>();
  BaseAdapter* adapter_ = nullptr;
  Json::Value first_thread_;
  std::vector<std::string> published_;
  std::vector<std::string> pictures_;
};

TEST_F(PluginTest, PublishesAResultAsTheCamerasOwnDoes) {
  Start();
  Recognise(7);
  EXPECT_EQ(Told("result")["plate_id"].asUInt(), 7U);
  EXPECT_THAT(published_, Contains("ivs_result " + Told("publishes")["mark"].asString()));
}

TEST_F(PluginTest, HasThePicturesOfAResultOnDiskWhileTheyAreStored) {
  Start();
  Recognise(7);
  EXPECT_THAT(pictures_, testing::ElementsAre("hostcheck_full.jpg", "hostcheck_full.jpg"));
  EXPECT_FALSE(std::filesystem::exists(Told("publishes")["pictures"][0].asString()));
}

TEST_F(PluginTest, PublishesNothingForAResultThatItIsToSwallow) {
  Start();
  Do("swallow");
  Recognise(7);
  EXPECT_TRUE(Told("result")["is_swallowed"].asBool());
  EXPECT_THAT(published_, IsEmpty());
}

TEST_F(PluginTest, TellsThatAResultCameAlthoughItsTopicWasLeft) {
  Start();
  adapter_->UnsubscribeMessage("ivs_result");
  Recognise(7);
  EXPECT_FALSE(Told("result")["is_listening"].asBool());
}

TEST_F(PluginTest, TellsOfACallWhileABusRequestKeepsTheThread) {
  Start();
  fake::ThePlatform().camera = [this](const fake::BusRequest&) {
    adapter_->OnMQTTConnected();
    return fake::BusAnswer{0, ""};
  };
  Do("wait");
  adapter_->OnMQTTDisconnected();
  EXPECT_TRUE(Told("OnMQTTConnected")["is_waiting"].asBool());
  EXPECT_FALSE(Told("OnMQTTDisconnected")["is_waiting"].asBool());
}

TEST_F(PluginTest, TellsTheThreadOfACall) {
  Start();
  std::thread([this] { adapter_->OnMessagePublished(11); }).join();
  EXPECT_NE(Told("OnMessagePublished")["thread"], first_thread_);
}

TEST_F(PluginTest, TellsOfACallAfterItsEndAndHasNothingPosted) {
  Start();
  BaseAdapter* const ended = std::exchange(adapter_, nullptr);
  destroy_(ended);
  EXPECT_TRUE(events_->pending.empty());
  ended->OnMQTTConnected();
  Told("destory_adapter");
  EXPECT_EQ(Told("OnMQTTConnected")["event"], "OnMQTTConnected");
}

TEST_F(PluginTest, IsNotMadeWhereNobodyListens) {
  for (const char* address : {"", "nonsense", "127.0.0.1:1"}) {
    setenv(kAddressVariable, address, 1);
    EXPECT_EQ(create_(events_, 0), nullptr) << address;
    EXPECT_EQ(fake::ThePlatform().logs.back().priority, 3);
  }
}

}  // namespace
}  // namespace hostcheck
