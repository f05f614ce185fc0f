// The example backends do what docs/integrating.md says of them.
#include <algorithm>
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "rig_test.h"
#include "support/loopback_port.h"

namespace {

using std::chrono::seconds;
using testing::HasSubstr;

struct Language {
  const char* name;
  std::vector<std::string> backend;
};

class Examples : public RigTest, public testing::WithParamInterface<Language> {
 protected:
  Examples() {
    // The five seconds between two stored results pass in 50 ms.
    rig_.more_environment["TARVEX_CLOCK_SCALE"] = "100";
  }

  void SetUp() override {
    rig_.StartCamera();
    rig_.StartAgent();
  }

  void TearDown() override {
    RigTest::TearDown();
    if (HasFailure() && backend_) {
      std::cerr << "--- backend ---\n" << backend_->Output();
    }
  }

  std::unique_ptr<ChildProcess> Run(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = GetParam().backend;
    command.insert(command.end(), arguments.begin(), arguments.end());
    const std::string output = "backend" + std::to_string(++runs_) + ".log";
    return std::make_unique<ChildProcess>(command, (rig_.directory.path() / output).string());
  }

  std::string Broker() const { return "127.0.0.1:" + std::to_string(rig_.broker.port()); }

  /// Starts the backend that listens, and waits until it does.
  void Listen(const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {Broker(), rig_.sn};
    arguments.insert(arguments.end(), options.begin(), options.end());
    backend_ = Run(arguments);
    ASSERT_TRUE(Shows("listening to RIG0001"));
  }

  bool Shows(const std::string& text) {
    return WaitUntil([&] { return backend_->Output().find(text) != std::string::npos; },
                     seconds(60));
  }

  /// How many lines of the backend have such a text.
  std::size_t Lines(const std::string& text) const {
    std::istringstream output(backend_->Output());
    std::size_t count = 0;
    for (std::string line; std::getline(output, line);) {
      if (line.find(text) != std::string::npos) {
        ++count;
      }
    }
    return count;
  }

  /// Starts a backend that asks one request.
  std::unique_ptr<ChildProcess> Ask(const std::string& name, const std::string& body = "",
                                    const std::string& timeout = "10") {
    std::vector<std::string> arguments = {Broker(), rig_.sn, "--ask", name};
    if (!body.empty()) {
      arguments.push_back(body);
    }
    arguments.insert(arguments.end(), {"--timeout", timeout});
    return Run(arguments);
  }

  /// Waits for the end. @return the exit code.
  static int ExitCode(ChildProcess* program) {
    return program->WaitForExit(seconds(60)) ? program->exit_code().value_or(-1) : -1;
  }
  int Pulses() { return rig_.CameraState()["gpio"]["pulses"][1].asInt(); }

  static constexpr char kPulse[] = R"({"io":1,"value":2,"delay":100})";

  std::unique_ptr<ChildProcess> backend_;

 private:
  int runs_ = 0;
};

TEST_P(Examples, ShowALiveResultWithItsPicture) {
  Listen();
  rig_.Ctl({"car", "AB12345"});
  EXPECT_TRUE(Shows("Z AB12345 id 1 live file://"));
}

TEST_P(Examples, EndAfterAsManyResultsAsTheyAreToldTo) {
  Listen({"--once", "2"});
  rig_.Ctl({"car"});
  rig_.Ctl({"car"});
  EXPECT_EQ(ExitCode(backend_.get()), 0);
  EXPECT_EQ(Lines(" live "), 2U);
}

TEST_P(Examples, GetTheAnswerToARequest) {
  const auto asking = Ask("get_sn");
  EXPECT_EQ(ExitCode(asking.get()), 0);
  EXPECT_THAT(asking->Output(), HasSubstr("RIG0001"));
}

TEST_P(Examples, PulseAnOutput) {
  const auto asking = Ask("gpio_out", kPulse);
  EXPECT_EQ(ExitCode(asking.get()), 0) << asking->Output();
  EXPECT_EQ(Pulses(), 1);
}

TEST_P(Examples, TellWhyTheCameraSaidNo) {
  const auto asking = Ask("gpio_out", R"({"io":"one"})");
  EXPECT_EQ(ExitCode(asking.get()), 1);
  EXPECT_THAT(asking->Output(), HasSubstr("refused in "));
}

TEST_P(Examples, PulseOnceWhenAResponseComesTooLate) {
  rig_.agent->Freeze();
  const auto asking = Ask("gpio_out", kPulse, "3");
  EXPECT_TRUE(WaitUntil([&] { return asking->Output().find("try 1 of 3") != std::string::npos; }));
  rig_.agent->Thaw();
  EXPECT_EQ(ExitCode(asking.get()), 0) << asking->Output();
  EXPECT_TRUE(WaitUntil([&] { return rig_.AgentStatus()["counters"]["requests"].asInt() == 2; }));
  EXPECT_EQ(Pulses(), 1);
}

TEST_P(Examples, ReportARequestThatNobodyAnswers) {
  rig_.agent->Terminate();
  const auto asking = Ask("get_sn", "", "0.3");
  EXPECT_EQ(ExitCode(asking.get()), 4);
  EXPECT_THAT(asking->Output(), HasSubstr("no response to get_sn; the camera is offline"));
}

TEST_P(Examples, AskAgainWithTheSameKeyAndAnExpiry) {
  rig_.agent->Terminate();
  const auto asking = Ask("get_sn", "", "0.3");
  EXPECT_EQ(ExitCode(asking.get()), 4);
  std::set<std::string> keys;
  for (int i = 0; i < 3; ++i) {
    const auto message = rig_.cloud->AwaitTopic(rig_.Topic("request/get_sn"));
    ASSERT_TRUE(message);
    const Json::Value request = ParseJson(message->payload);
    EXPECT_EQ(request["expires_ms"].asInt(), 300);
    keys.insert(request["idempotency_key"].asString());
  }
  EXPECT_EQ(keys.size(), 1U);
  EXPECT_GE(keys.begin()->size(), 16U);
}

TEST_P(Examples, MissNoResultWhileTheyAreAway) {
  Listen();
  rig_.cloud.reset();
  backend_->Kill();
  for (const char* plate : {"AWAY001", "AWAY002", "AWAY003"}) {
    rig_.Ctl({"car", plate});
  }
  ASSERT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  Listen();
  EXPECT_TRUE(Shows("AWAY003 id 3 live"));
  EXPECT_EQ(Lines(" live "), 3U);
}

TEST_P(Examples, HaveWhatWasStoredDeliveredUntilNothingIsLeft) {
  constexpr std::size_t kCars = 25;  // more than one push brings
  Listen();
  rig_.broker.Kill();
  ASSERT_TRUE(AgentPrints("broker lost"));
  for (std::size_t i = 0; i < kCars; ++i) {
    rig_.Ctl({"car"});
  }
  ASSERT_EQ(Undelivered(), static_cast<int>(kCars));
  rig_.broker.Start();
  EXPECT_TRUE(WaitUntil([&] { return Lines(" stored ") == kCars; }, seconds(60)));
  EXPECT_TRUE(Shows("online, device there, 0 undelivered"));
  EXPECT_EQ(Undelivered(), 0);
}

TEST_P(Examples, ShowAResultOnceThatCameTwice) {
  Listen();
  // The store cannot mark the result as delivered.
  rig_.Ctl({"service", "BUS_GET_IVS_INFO", "down"});
  rig_.Ctl({"car", "TWICE01"});
  ASSERT_TRUE(Shows("TWICE01 id 1 live"));
  rig_.AgentStatus();
  rig_.Ctl({"service", "BUS_GET_IVS_INFO", "up"});
  ASSERT_EQ(Undelivered(), 1);
  ASSERT_TRUE(WaitUntil([this] { return Undelivered() == 0; }, seconds(60)));
  rig_.AwaitMessage("offline_record");  // it is over: what comes now is not part of it
  rig_.Ctl({"car", "LATER01"});
  ASSERT_TRUE(Shows("LATER01 id 2 "));  // live, or stored where the backend has pushed once more
  EXPECT_EQ(Lines("TWICE01"), 1U);
  EXPECT_TRUE(AgentPrints("ivs_result tag 16"));
}

TEST_P(Examples, FollowTheStatus) {
  Listen();
  ASSERT_TRUE(Shows("status: online, device there, 0 undelivered"));
  rig_.camera->Kill();
  EXPECT_TRUE(Shows("status: online, device not there"));
  rig_.agent->Kill();
  EXPECT_TRUE(Shows("status: offline"));
}

TEST_P(Examples, KeepNothingButResultsAtTheBroker) {
  Listen();
  backend_->Kill();
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
  rig_.AgentStatus();
  rig_.Ctl({"car", "AWAY001"});
  ASSERT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  const std::string session = std::string("backend-") + GetParam().name + "-" + rig_.sn;
  ChildProcess first_kept(
      {"mosquitto_sub", "-V", "mqttv5", "-p", std::to_string(rig_.broker.port()), "-c", "-x", "60",
       "-i", session, "-t", "none", "-C", "1", "-F", "%t"},
      (rig_.directory.path() / "session.log").string());
  EXPECT_EQ(ExitCode(&first_kept), 0);
  EXPECT_EQ(first_kept.Output(), rig_.Topic("message/ivs_result") + "\n");
}

TEST_P(Examples, SurviveWhatIsNotUnderstood) {
  Listen();
  // One that does not hold what it hears against the contract.
  rig_.cloud = std::make_unique<MqttClient>(rig_.broker.port(), "nothing");
  rig_.cloud->Publish(rig_.Topic("message/ivs_result"), "{\"payload\":");
  rig_.cloud->Publish(rig_.Topic("message/ivs_result"), R"({"tag":11,"payload":null})");
  rig_.cloud->Publish(rig_.Topic("status"), "null");
  rig_.Ctl({"car", "AB12345"});
  EXPECT_TRUE(Shows("AB12345 id 1 live"));
  EXPECT_EQ(Lines("not understood: "), 3U);
}

TEST_P(Examples, ReportABrokerThatIsNotThere) {
  const std::string nobody = "127.0.0.1:" + std::to_string(FreeLoopbackPort());
  const auto backend = Run({nobody, rig_.sn});
  EXPECT_EQ(ExitCode(backend.get()), 3);
  EXPECT_THAT(backend->Output(), HasSubstr("backend: " + nobody + ": "));
}

TEST_P(Examples, RefuseWrongUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"127.0.0.1", rig_.sn},
      {Broker(), "+"},
      {Broker(), rig_.sn, "--once", "many"},
      {Broker(), rig_.sn, "--ask", "get_sn", "{"},
      {Broker(), rig_.sn, "--ask", "get_sn", "--timeout", "-1"},
      {Broker(), rig_.sn, "--nonsense"}};
  for (const auto& arguments : wrong) {
    const auto asking = Run(arguments);
    EXPECT_EQ(ExitCode(asking.get()), 2) << asking->Output();
    EXPECT_THAT(asking->Output(), HasSubstr("usage: "));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Backends, Examples,
    testing::Values(Language{"js", {"node", RIG_EXAMPLES "/backend.mjs"}},
                    // Debian's python, which has Debian's packages
                    Language{"py", {"/usr/bin/python3", RIG_EXAMPLES "/backend.py"}}),
    [](const auto& language) { return std::string(language.param.name); });

}  // namespace
