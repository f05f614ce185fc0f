// One camera at a time serves a bus: the real program, several of it on one server.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/child_process.h"
#include "support/nats_server.h"
#include "support/temp_directory.h"
#include "support/wait_until.h"
#include "virtual_camera/surroundings/bus_server.h"

namespace {

class CamerasOnOneBus : public testing::Test {
 protected:
  struct Running {
    TempDirectory data;
    std::unique_ptr<ChildProcess> process;
  };

  void Start(Running& camera, const std::string& prefix = "") {
    camera.process.reset();  // ends the one before it, which has the data
    camera.process = std::make_unique<ChildProcess>(
        std::vector<std::string>{VIRTUAL_CAMERA, "--data", camera.data.path().string(),
                                 "--picture-width", "64", "--reboot-seconds", "60"},
        (camera.data.path() / ("log" + std::to_string(++starts))).string(),
        std::map<std::string, std::string>{{"TARVEX_BUS_ADDRESS", bus.address()},
                                           {"TARVEX_KV_ADDRESS", "127.0.0.1:1"},
                                           {"TARVEX_SUBJECT_PREFIX", prefix}});
  }

  static bool IsReady(const Running& camera) {
    return camera.process->Output().find("virtual_camera ready") != std::string::npos;
  }

  void StartAndAwait(Running& camera, const std::string& prefix = "") {
    Start(camera, prefix);
    ASSERT_TRUE(WaitUntil([&] { return IsReady(camera); })) << camera.process->Output();
  }

  // Ended by itself, with exit code 1, and the last line it wrote says what to do.
  static testing::AssertionResult IsRefused(Running& camera) {
    const std::string line =
        "virtual_camera: another camera serves this bus; give each of them a "
        "TARVEX_SUBJECT_PREFIX of its own\n";
    if (!camera.process->WaitForExit()) {
      return testing::AssertionFailure() << "still runs: " << camera.process->Output();
    }
    const std::string output = camera.process->Output();
    const bool says_why = output.size() >= line.size() &&
                          output.compare(output.size() - line.size(), line.size(), line) == 0;
    return camera.process->exit_code() == 1 && says_why
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << *camera.process->exit_code() << ": " << output;
  }

  // Waits until one of them has ended.
  bool OneIsLeft() {
    return WaitUntil([this] { return first.process->IsRunning() != second.process->IsRunning(); });
  }

  int starts = 0;
  NatsServer bus;
  Running first;
  Running second;
};

TEST_F(CamerasOnOneBus, SecondIsRefusedAndTheFirstServesOn) {
  StartAndAwait(first);
  Start(second);
  EXPECT_TRUE(IsRefused(second));
  EXPECT_FALSE(IsReady(second));
  EXPECT_TRUE(first.process->IsRunning());
}

TEST_F(CamerasOnOneBus, AreServedSideBySideUnderPrefixesOfTheirOwn) {
  StartAndAwait(first, "gate1");
  StartAndAwait(second, "gate2");
  EXPECT_TRUE(first.process->IsRunning());
}

TEST_F(CamerasOnOneBus, KilledOneIsReplacedAtOnce) {
  StartAndAwait(first);
  first.process->Kill();
  StartAndAwait(first);
}

TEST_F(CamerasOnOneBus, FrozenOneIsNotWaitedForAndTheYoungerGivesWayWhenItGoesOn) {
  StartAndAwait(first);
  first.process->Freeze();
  StartAndAwait(second);
  first.process->Thaw();
  EXPECT_TRUE(IsRefused(second));
  EXPECT_TRUE(first.process->IsRunning());
}

TEST_F(CamerasOnOneBus, RebootingOneIsStillThere) {
  StartAndAwait(first);
  setenv("TARVEX_BUS_ADDRESS", bus.address().c_str(), 1);
  const auto link = tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", 6101), "test");
  unsetenv("TARVEX_BUS_ADDRESS");
  natsConnection_PublishRequestString(link->get(), "SS_BUS_REQUEST", "nobody",
                                      R"({"type":"reboot_dev"})");
  ASSERT_TRUE(WaitUntil(
      [this] { return first.process->Output().find("the camera reboots") != std::string::npos; }));
  Start(second);
  EXPECT_TRUE(IsRefused(second));
}

TEST_F(CamerasOnOneBus, OneOfTwoThatWaitedForTheBusIsLeft) {
  bus.Kill();
  Start(first);
  Start(second);
  bus.Start();
  ASSERT_TRUE(OneIsLeft());
  EXPECT_TRUE(IsRefused(first.process->IsRunning() ? second : first));
}

TEST_F(CamerasOnOneBus, OneOfTwoThatStartTogetherIsLeft) {
  for (int round = 0; round < 5; ++round) {
    Start(first);
    Start(second);
    ASSERT_TRUE(OneIsLeft());
    Running& left = first.process->IsRunning() ? first : second;
    EXPECT_TRUE(IsRefused(&left == &first ? second : first));
    EXPECT_TRUE(WaitUntil([&] { return IsReady(left); }));
  }
}

TEST_F(CamerasOnOneBus, NewcomerDuringAnOutageGivesWayToTheOneBeforeIt) {
  StartAndAwait(first);
  first.process->Freeze();
  bus.Kill();
  bus.Start();
  StartAndAwait(second);
  first.process->Thaw();
  EXPECT_TRUE(IsRefused(second));
  EXPECT_TRUE(first.process->IsRunning());
}

}  // namespace
