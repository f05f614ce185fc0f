// The bus client that a plug-in gets in a host which puts a gate before the platform's.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_bus.h"
#include "mqttadapter_host/gated_bus.h"

namespace mqttadapter_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CreatedBus : public ::testing::Test {
 protected:
  ~CreatedBus() override { SetBusGate({}); }

  /// The plug-in makes a client.
  boost::shared_ptr<tarvex::DpClient> Create(int port = 6101) {
    void* const plugin = dlopen(HOST_BUS_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    const auto make = reinterpret_cast<void (*)(int, boost::shared_ptr<tarvex::DpClient>*)>(
        dlsym(plugin, "make_client"));
    boost::shared_ptr<tarvex::DpClient> client;
    make(port, &client);
    if (client) {
      client->SignalDpMessage.connect(&listener_, &Listener::OnMessage);
    }
    return client;
  }

  Listener listener_;
};

TEST_F(CreatedBus, OfAPlugInIsThePlatformsWithTheGateBeforeIt) {
  std::vector<std::string> at_gate;
  SetBusGate([&](const tarvex::DpMessage& message, const std::function<void()>&) {
    at_gate.push_back(message.method);
  });
  Create()->ListenMessage("topic", 0);
  EXPECT_THAT(at_gate, ElementsAre("topic"));
  EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_F(CreatedBus, WithoutAGateHearsEverything) {
  Create()->ListenMessage("topic", 0);
  EXPECT_THAT(listener_.heard, ElementsAre("topic at once"));
}

TEST_F(CreatedBus, IsNoneWhereThePlatformMakesNone) { EXPECT_EQ(Create(0), nullptr); }

}  // namespace
}  // namespace mqttadapter_host
