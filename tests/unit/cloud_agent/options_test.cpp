#include "cloud_agent/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "support/temp_directory.h"

namespace agent {
namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

class Options : public ::testing::Test {
 protected:
  std::optional<int> Parse(std::vector<const char*> arguments) {
    options_ = ProgramOptions();
    arguments.insert(arguments.begin(), {"cloud_agent", "--plugin", "p.so"});
    CaptureStderr();
    CaptureStdout();
    const auto status =
        ParseOptions(static_cast<int>(arguments.size()), arguments.data(), &options_);
    printed_ = GetCapturedStdout() + GetCapturedStderr();
    return status;
  }

  /// What is said of a refused command line.
  std::string RefusalOf(const std::vector<const char*>& arguments) {
    const auto status = Parse(arguments);
    EXPECT_TRUE(status.has_value());
    EXPECT_NE(status.value_or(0), 0);
    return printed_;
  }

  std::string File(const std::string& name, const std::string& content) {
    const std::string path = (directory_.path() / name).string();
    std::ofstream(path) << content;
    return path;
  }

  /// The addresses on one line.
  std::string Brokers() const {
    std::string line;
    for (const BrokerAddress& address : options_.link.broker.addresses) {
      line += (line.empty() ? "" : " ") + address.Text();
    }
    return line;
  }

  TempDirectory directory_;
  ProgramOptions options_;
  std::string printed_;
};

TEST_F(Options, HaveDefaults) {
  EXPECT_EQ(Parse({}), std::nullopt);
  EXPECT_EQ(options_.plugin_path, "p.so");
  EXPECT_EQ(options_.root, "cameras");
  EXPECT_EQ(Brokers(), "127.0.0.1:1883");
  EXPECT_FALSE(options_.link.broker.version);
  EXPECT_EQ(options_.link.broker.keep_alive_s, 10);
  EXPECT_FALSE(options_.link.broker.use_tls);
  EXPECT_EQ(options_.agent.requests.max_request_bytes, 262144U);
  EXPECT_FALSE(options_.agent.requests.diagnose);
  EXPECT_EQ(options_.max_requests_waiting, 64U);
  EXPECT_EQ(options_.agent.guard.results_in_flight, 1U);
  EXPECT_EQ(options_.agent.guard.results_waiting, 64U);
  EXPECT_TRUE(options_.agent.guard.duties.one_at_a_time);
  EXPECT_TRUE(options_.agent.guard.duties.ignore_stale_acks);
  EXPECT_TRUE(options_.agent.guard.duties.one_offline);
  EXPECT_EQ(options_.agent.status_interval_s, 10);
  EXPECT_FALSE(options_.agent.auto_push);
  EXPECT_EQ(options_.pictures.keep, 5000U);
}

TEST_F(Options, MayAllowResponseTopicsThatAreNoCameras) {
  EXPECT_EQ(Parse({"--response-root", "callers/answers"}), std::nullopt);
  CompleteOptions("CAM1", 1, &options_);
  EXPECT_EQ(options_.agent.requests.topics.response_root, "callers/answers");
  EXPECT_EQ(Parse({"--response-root", "cameras2"}), std::nullopt);
  for (const char* topic : {"cameras", "cameras/callers"}) {
    EXPECT_THAT(RefusalOf({"--response-root", topic}),
                HasSubstr("--response-root: \"" + std::string(topic) +
                          "\" and --root, \"cameras\", are one within the other"));
  }
  EXPECT_NE(RefusalOf({"--root", "eu/cameras", "--response-root", "eu"}), "");
  EXPECT_THAT(RefusalOf({"--response-root", "callers/#"}),
              HasSubstr("--response-root: \"callers/#\" has a character"));
}

TEST_F(Options, NeedAPlugin) {
  const char* arguments[] = {"cloud_agent"};
  CaptureStderr();
  EXPECT_NE(ParseOptions(1, arguments, &options_).value_or(0), 0);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("--plugin is required"));
}

TEST_F(Options, OfABrokerWithTlsHaveItsPort) {
  EXPECT_EQ(Parse({"--broker", "example.org", "--tls"}), std::nullopt);
  EXPECT_EQ(Brokers(), "example.org:8883");
}

TEST_F(Options, ImplyTlsByACertificateToTrust) {
  const std::string ca = File("ca.pem", "x");
  EXPECT_EQ(Parse({"--broker", "example.org:1234", "--ca", ca.c_str()}), std::nullopt);
  EXPECT_TRUE(options_.link.broker.use_tls);
  EXPECT_EQ(Brokers(), "example.org:1234");
}

TEST_F(Options, NameSeveralBrokers) {
  EXPECT_EQ(Parse({"--broker", "a,b:17", "--broker", "[::1]"}), std::nullopt);
  EXPECT_EQ(Brokers(), "a:1883 b:17 [::1]:1883");
  const std::string file = File("agent.conf", "broker = [\"a\", \"b:17\"]\n");
  EXPECT_EQ(Parse({"--config", file.c_str()}), std::nullopt);
  EXPECT_EQ(Brokers(), "a:1883 b:17");
}

TEST_F(Options, NameABrokerWithTlsByItsAddress) {
  EXPECT_EQ(Parse({"--broker", "mqtts://example.org"}), std::nullopt);
  EXPECT_TRUE(options_.link.broker.use_tls);
  EXPECT_EQ(Brokers(), "example.org:8883");
}

TEST_F(Options, RefuseABrokerWithoutTlsWhereTlsIsAskedFor) {
  EXPECT_THAT(RefusalOf({"--tls", "--broker", "mqtt://a"}),
              HasSubstr("--broker: mqtt://a is without TLS"));
}

TEST_F(Options, NameAVersionOfMqtt) {
  EXPECT_EQ(Parse({"--mqtt-version", "5"}), std::nullopt);
  EXPECT_EQ(options_.link.broker.version, MqttVersion::k5);
  EXPECT_EQ(Parse({"--mqtt-version", "3.1.1"}), std::nullopt);
  EXPECT_EQ(options_.link.broker.version, MqttVersion::k311);
  EXPECT_EQ(Parse({"--mqtt-version", "auto"}), std::nullopt);
  EXPECT_FALSE(options_.link.broker.version);
  EXPECT_THAT(RefusalOf({"--mqtt-version", "3.1"}), HasSubstr("--mqtt-version"));
}

TEST_F(Options, OfACertificateNeedItsKey) {
  const std::string file = File("cert.pem", "x");
  EXPECT_THAT(RefusalOf({"--cert", file.c_str()}), HasSubstr("--key"));
}

TEST_F(Options, CanStandInAFileAndTheCommandLineWins) {
  const std::string file = File("agent.conf",
                                "root = \"eu/cameras\"\nkeep-alive = 20\n"
                                "print-messages = true\n");
  EXPECT_EQ(Parse({"--config", file.c_str(), "--keep-alive", "30"}), std::nullopt);
  EXPECT_EQ(options_.root, "eu/cameras");
  EXPECT_EQ(options_.link.broker.keep_alive_s, 30);
  EXPECT_TRUE(options_.print_messages);
}

TEST_F(Options, ThatAFileMisspellsAreRefused) {
  const std::string file = File("wrong.conf", "rot = \"cameras\"\n");
  EXPECT_THAT(RefusalOf({"--config", file.c_str()}), HasSubstr("rot"));
}

TEST_F(Options, ReadThePasswordFromTheFirstLine) {
  const std::string file = File("password", "secret\r\nmore\n");
  EXPECT_EQ(Parse({"--username", "cam", "--password-file", file.c_str()}), std::nullopt);
  EXPECT_EQ(options_.link.broker.password, "secret");
}

TEST_F(Options, RefuseAPasswordWithoutAUser) {
  const std::string file = File("password", "secret\n");
  EXPECT_THAT(RefusalOf({"--password-file", file.c_str()}), HasSubstr("--username"));
}

TEST_F(Options, RefuseWhatCannotBe) {
  EXPECT_THAT(RefusalOf({"--broker", "host:0"}), HasSubstr("--broker: \"0\" is no port"));
  EXPECT_THAT(RefusalOf({"--root", "a/#"}), HasSubstr("--root: "));
  EXPECT_THAT(RefusalOf({"--keep-alive", "4"}), HasSubstr("--keep-alive"));
  EXPECT_THAT(RefusalOf({"--results-in-flight", "0"}), HasSubstr("--results-in-flight"));
  EXPECT_THAT(RefusalOf({"--backoff-min-ms", "500", "--backoff-max-ms", "100"}),
              HasSubstr("--backoff-max-ms"));
  EXPECT_THAT(RefusalOf({"--nonsense"}), HasSubstr("--nonsense"));
}

TEST_F(Options, KeepTheFirstDelayBelowTheLongest) {
  EXPECT_EQ(Parse({}), std::nullopt);
  EXPECT_EQ(options_.link.backoff_min_ms, 3000);
  EXPECT_EQ(Parse({"--backoff-max-ms", "2000"}), std::nullopt);
  EXPECT_EQ(options_.link.backoff_min_ms, 2000);
  EXPECT_EQ(Parse({"--backoff-min-ms", "50", "--backoff-max-ms", "2000"}), std::nullopt);
  EXPECT_EQ(options_.link.backoff_min_ms, 50);
}

TEST_F(Options, LetNobodySwitchADutyOff) {
  EXPECT_THAT(RefusalOf({"--no-duty", "one-at-a-time"}), HasSubstr("--no-duty"));
}

TEST_F(Options, SayWhatBecomesOfUnheardResults) {
  EXPECT_EQ(Parse({}), std::nullopt);
  EXPECT_FALSE(options_.agent.guard.confirm_unheard);
  EXPECT_EQ(Parse({"--unheard", "confirm"}), std::nullopt);
  EXPECT_TRUE(options_.agent.guard.confirm_unheard);
  EXPECT_THAT(RefusalOf({"--unheard", "lose"}), HasSubstr("--unheard"));
}

TEST_F(Options, SwitchTheTraceOn) {
  EXPECT_EQ(Parse({}), std::nullopt);
  EXPECT_FALSE(options_.trace);
  EXPECT_EQ(Parse({"--trace"}), std::nullopt);
  EXPECT_TRUE(options_.trace);
}

TEST_F(Options, AreExplainedOnRequest) {
  EXPECT_EQ(Parse({"--help"}), 0);
  for (const char* text : {"ROOT/SN/request/NAME", "--broker", "--auto-push", "Example:"}) {
    EXPECT_THAT(printed_, HasSubstr(text));
  }
  EXPECT_EQ(printed_.find("--no-duty"), std::string::npos);
}

TEST_F(Options, AreCompletedByTheSerialNumber) {
  Parse({"--root", "eu"});
  CompleteOptions("CAM1", 10.0, &options_);
  EXPECT_EQ(options_.root, "eu");
  EXPECT_EQ(options_.agent.requests.topics.base, "eu/CAM1");
  EXPECT_EQ(options_.link.broker.client_id, "CAM1");
  EXPECT_EQ(options_.link.broker.will_topic, "eu/CAM1/status");
  EXPECT_EQ(options_.link.broker.will_payload, R"({"online":false})");
  EXPECT_EQ(options_.link.broker.request_filter, "eu/CAM1/request/#");
}

TEST_F(Options, KeepAClientIdThatIsGiven) {
  Parse({"--client-id", "seven"});
  CompleteOptions("CAM1", 1.0, &options_);
  EXPECT_EQ(options_.link.broker.client_id, "seven");
}

}  // namespace
}  // namespace agent
