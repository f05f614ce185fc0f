// The agent under hostcheck, and what that says of one which leaves a duty undone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <utility>

#include "support/child_process.h"
#include "support/nats_server.h"
#include "support/temp_directory.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string Underscored(std::string name) {
  for (char& character : name) {
    character = character == '-' || character == ' ' ? '_' : character;
  }
  return name;
}

class HostCheck : public testing::Test {
 protected:
  struct Outcome {
    int status;
    std::vector<std::string> broken;
    std::vector<std::string> not_exercised;
    std::string said;
  };

  /// hostcheck's word on a host.
  Outcome Check(const std::vector<std::string>& host,
                const std::vector<std::string>& options = {}) {
    std::vector<std::string> command = {RIG_HOSTCHECK, "--quiet", "200", "--blocked", "1000"};
    command.insert(command.end(), {"--patience", std::to_string(patience_ms_)});
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), host.begin(), host.end());
    ChildProcess check(command, (directory_.path() / "said").string(),
                       {{"TARVEX_BUS_ADDRESS", bus_.address()},
                        {"TARVEX_KV_ADDRESS", bus_.address()},
                        {"TARVEX_SERIAL_NUMBER", "RIG0001"},
                        {"INNER_PLUGIN", RIG_HOSTCHECK_PLUGIN},
                        {"FAULT", fault_}});
    check.WaitForExit(std::chrono::minutes(4));
    Outcome outcome{check.exit_code().value_or(-1), {}, {}, check.Output()};
    std::istringstream lines(outcome.said);
    for (std::string line; std::getline(lines, line);) {
      const std::string name = line.substr(0, line.find(':'));
      if (name.rfind("BROKEN", 0) == 0) {
        outcome.broken.push_back(name.substr(15));
      } else if (name.rfind("not exercised", 0) == 0) {
        outcome.not_exercised.push_back(name.substr(15));
      }
    }
    return outcome;
  }

  std::vector<std::string> Agent(const std::string& program,
                                 const std::vector<std::string>& options = {}) const {
    const std::string plugin = fault_.empty() ? "{plugin}" : RIG_FAULTY_HOST;
    const std::string pictures = (directory_.path() / "pictures").string();
    std::vector<std::string> host = {program, "--plugin", plugin, "--broker", "{broker}"};
    host.insert(host.end(), {"--picture-dir", pictures, "--backoff-min-ms", "50"});
    host.insert(host.end(), {"--backoff-max-ms", "200"});
    host.insert(host.end(), options.begin(), options.end());
    return host;
  }

  const std::vector<std::string> requests_ = {"--request-topic", "cameras/RIG0001/request/{name}"};
  int patience_ms_ = 10000;
  std::string fault_;  // of a host that is put together of the agent and this
  NatsServer bus_{NatsServer::Storage::kJetStream};
  const TempDirectory directory_;
};

TEST_F(HostCheck, SaysThatTheAgentKeepsEverything) {
  const Outcome outcome = Check(Agent(RIG_AGENT), requests_);
  EXPECT_EQ(outcome.status, 0) << outcome.said;
  EXPECT_THAT(outcome.broken, IsEmpty()) << outcome.said;
  EXPECT_THAT(outcome.not_exercised, IsEmpty()) << outcome.said;
}

TEST_F(HostCheck, SaysThatTheExampleKeepsEverythingThroughAGateOfItsOwn) {
  const Outcome outcome =
      Check({RIG_EXAMPLE_HOST, "{plugin}", "127.0.0.1", "{port}"},
            {"--request-topic", "example/ask/{name}", "--request-body", "{payload}"});
  EXPECT_EQ(outcome.status, 0) << outcome.said;
  EXPECT_THAT(outcome.not_exercised, IsEmpty()) << outcome.said;
}

TEST_F(HostCheck, SaysWhatItCouldNotTryWithoutKnowingHowTheCloudAsks) {
  const Outcome outcome = Check(Agent(RIG_AGENT));
  EXPECT_EQ(outcome.status, 0) << outcome.said;
  EXPECT_THAT(outcome.not_exercised,
              ElementsAre("request-arguments", "withheld-after-emptied-queue"));
}

TEST_F(HostCheck, IsOfNoUseWithAHostThatLoadsNoPlugIn) {
  const Outcome outcome = Check({"/bin/echo", "I am no host"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.said, HasSubstr("I am no host"));
}

/// A duty that the agent leaves undone, and what is broken then.
struct Lapse {
  const char* duty;
  std::vector<std::string> broken;
};

class HostCheckOfALapse : public HostCheck, public testing::WithParamInterface<Lapse> {};

TEST_P(HostCheckOfALapse, NamesIt) {
  const Outcome outcome =
      Check(Agent(RIG_AGENT_WITHOUT_DUTIES, {"--no-duty", GetParam().duty}), requests_);
  EXPECT_EQ(outcome.status, 1) << outcome.said;
  EXPECT_THAT(outcome.broken, ElementsAreArray(GetParam().broken)) << outcome.said;
}

INSTANTIATE_TEST_SUITE_P(All, HostCheckOfALapse,
                         testing::Values(Lapse{"one-at-a-time", {"one-result-at-a-time"}},
                                         Lapse{"release-unpublished", {"result-released"}},
                                         Lapse{"heed-refusals", {"positive-answer-only"}},
                                         Lapse{"one-offline", {"second-redelivery-dropped"}},
                                         Lapse{"withhold-offline",
                                               {"withheld-after-another-record",
                                                "withheld-after-emptied-queue"}},
                                         Lapse{"unsubscribe-on-loss", {"subscribed-with-link"}}),
                         [](const auto& lapse) { return Underscored(lapse.param.duty); });

/// What can be wrong beside, and what is broken then: at least that.
struct Fault {
  const char* fault;
  const char* broken;
};

class HostCheckOfAFault : public HostCheck, public testing::WithParamInterface<Fault> {};

TEST_P(HostCheckOfAFault, NamesIt) {
  fault_ = GetParam().fault;
  patience_ms_ = 2000;  // what is late counts as broken too, and is no matter here
  const Outcome outcome = Check(Agent(RIG_AGENT), requests_);
  EXPECT_EQ(outcome.status, 1) << outcome.said;
  EXPECT_THAT(outcome.broken, Contains(GetParam().broken)) << outcome.said;
}

INSTANTIATE_TEST_SUITE_P(
    All, HostCheckOfAFault,
    testing::Values(
        Fault{"unconnected", "signal-connected"}, Fault{"undestroyed", "destroyed-last"},
        Fault{"call after the end", "destroyed-last"}, Fault{"crash at the end", "destroyed-last"},
        Fault{"names first", "calls-in-order"}, Fault{"initialised twice", "calls-in-order"},
        Fault{"no image function", "pictures"}, Fault{"one picture", "pictures"},
        Fault{"lost request", "request-arguments"}, Fault{"bare body", "request-arguments"},
        Fault{"loss untold", "connection-told"},
        Fault{"confirmed after a loss", "stale-answer-ignored"},
        Fault{"unconfirmed", "acknowledged-is-confirmed"},
        Fault{"other thread", "calls-on-one-thread"}, Fault{"confirmed twice", "confirmed-once"},
        Fault{"sent twice", "not-sent-again"}, Fault{"confirmed at once", "positive-answer-only"}),
    [](const auto& fault) { return Underscored(fault.param.fault); });

}  // namespace
