// What docs/security.md has people type, with a real broker: who may do what there.
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "rig_test.h"
#include "support/loopback_port.h"

namespace {

using testing::HasSubstr;
using testing::Not;

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
}

std::string TextOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

class Security : public RigTest {
 protected:
  /// Sets the broker up as the page says.
  /// @param camera the page's camera that the rig's is; empty: none of them.
  void SetUpBroker(const std::string& camera) {
    page_ = TextOf(SECURITY_DOC);
    if (!camera.empty()) {
      ReplaceAll(page_, camera, rig_.sn);
    }
    ReplaceAll(page_, "DNS:cloud.example", "IP:127.0.0.1");
    ReplaceAll(page_, "/etc/mosquitto/cameras", Path(""));
    ReplaceAll(page_, "listener 8883",
               "listener " + std::to_string(certificate_port_) + " 127.0.0.1");
    ReplaceAll(page_, "listener 8884", "listener " + std::to_string(password_port_) + " 127.0.0.1");
    RunCommands();
    std::ofstream(Path("acl")) << Blocks("<!-- file: acl -->");
    BrokerProgram program = Mosquitto({});
    program.configuration = Blocks("<!-- file: cameras.conf -->") +
                            "user root\n"
                            "listener @PORT@ 127.0.0.1\n";  // the test's client is without TLS
    program.username = "backend";
    program.password = FirstLine("backend.password");
    broker_ = std::make_unique<MqttBroker>(program);
    rig_.cloud = std::make_unique<MqttClient>(broker_->access(), "cameras/#");
    rig_.StartCamera();
  }

  std::vector<std::string> WithCertificate(const std::string& name) const {
    return {"--ca",  Path("ca.pem"),      "--cert",          Path(name + ".pem"),
            "--key", Path(name + ".key"), "--response-root", "callers"};
  }

  std::vector<std::string> WithPassword(const std::string& name) const {
    return {"--ca", Path("ca.pem"),    "--username",
            name,   "--password-file", Path(name + ".password")};
  }

  /// The camera is let in, and all that it does is denied.
  void ExpectDenied() {
    const std::string refusal = "the broker refuses to publish cameras/RIG0001/";
    ASSERT_TRUE(AgentPrints(refusal));
    EXPECT_THAT(rig_.agent->Output(),
                HasSubstr("Not authorized (0x87); look at what it allows this user"));
    rig_.cloud->Publish(rig_.Topic("request/ivs_trigger"),
                        R"({"id":1,"version":"1.0","payload":{"type":"ivs_trigger"}})");
    rig_.Ctl({"car"});
    EXPECT_TRUE(AgentPrints("ivs_result"));
    EXPECT_EQ(rig_.CameraState()["results"]["recognised"].asInt(), 1) << "one more by the request";
    EXPECT_EQ(Undelivered(), 1);
    const std::string log = rig_.agent->Output();
    EXPECT_EQ(log.find(refusal, log.find(refusal) + 1), std::string::npos) << "one line is enough";
  }

  std::string Path(const std::string& name) const { return (files_.path() / name).string(); }

  std::string FirstLine(const std::string& name) const {
    const std::string text = TextOf(Path(name));
    return text.substr(0, text.find('\n'));
  }

  int certificate_port_ = FreeLoopbackPort();
  int password_port_ = FreeLoopbackPort();
  std::unique_ptr<MqttBroker> broker_;

 private:
  /// The blocks of the page that follow such a line, one after the other.
  std::string Blocks(const std::string& mark) const {
    std::string blocks;
    for (std::size_t at = page_.find(mark); at != std::string::npos; at = page_.find(mark, at)) {
      const std::size_t begin = page_.find('\n', page_.find("```", at)) + 1;
      at = page_.find("```", begin);
      blocks += page_.substr(begin, at - begin);
    }
    EXPECT_NE(blocks, "") << mark;
    return blocks;
  }

  void RunCommands() {
    std::ofstream(Path("commands")) << "set -e\ncd " << Path("") << "\n"
                                    << Blocks("<!-- commands -->");
    ChildProcess shell({"bash", Path("commands")}, Path("commands.log"), {});
    ASSERT_TRUE(shell.WaitForExit());
    ASSERT_EQ(shell.exit_code(), 0) << shell.Output();
  }

  TempDirectory files_;
  std::string page_;
};

TEST_F(Security, LetsACameraWorkWithItsCertificate) {
  SetUpBroker("CAM0001");
  rig_.StartAgent(WithCertificate(rig_.sn), certificate_port_);
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
  EXPECT_TRUE(WaitUntil([this] { return Undelivered() == 0; }));
  EXPECT_THAT(rig_.agent->Output(), Not(HasSubstr("the broker refuses")));
}

TEST_F(Security, LetsACameraWorkWithItsPassword) {
  SetUpBroker("CAM0002");
  rig_.StartAgent(WithPassword(rig_.sn), password_port_);
  rig_.Ctl({"car", "AB12345"});
  AwaitPlate("AB12345");
  EXPECT_EQ(rig_.Request("get_sn")["result"], true);
  EXPECT_THAT(rig_.agent->Output(), Not(HasSubstr("the broker refuses")));
}

TEST_F(Security, DeniesACameraWithTheCertificateOfAnother) {
  SetUpBroker("");
  rig_.LaunchAgent(WithCertificate("CAM0001"), certificate_port_);
  ExpectDenied();
}

TEST_F(Security, DeniesACameraWithThePasswordOfAnother) {
  SetUpBroker("");
  rig_.LaunchAgent(WithPassword("CAM0002"), password_port_);
  ExpectDenied();
}

TEST_F(Security, LetsACallerAskOnItsOwnResponseTopic) {
  SetUpBroker("CAM0001");
  rig_.StartAgent(WithCertificate(rig_.sn), certificate_port_);
  ChildProcess caller(
      {"mosquitto_rr",
       "-V",
       "5",
       "-q",
       "1",
       "-W",
       "20",
       "-h",
       "127.0.0.1",
       "-p",
       std::to_string(certificate_port_),
       "--cafile",
       Path("ca.pem"),
       "--cert",
       Path("gate.pem"),
       "--key",
       Path("gate.key"),
       "-t",
       rig_.Topic("request/gpio_out"),
       "-e",
       "callers/gate/" + rig_.sn,
       "-m",
       R"({"id":"1","version":"1.0","payload":{"type":"gpio_out","body":{"io":1,"value":2,"delay":3000}}})"},
      Path("caller.log"), {});
  ASSERT_TRUE(caller.WaitForExit());
  EXPECT_THAT(caller.Output(), HasSubstr(R"("result":true)"));
}

TEST_F(Security, MayRefuseTheSubscription) {
  const std::string rules = Path("rules.json");
  std::ofstream(rules) << R"({"defaultACLAccess": {"publishClientSend": true,
      "publishClientReceive": true, "subscribe": false, "unsubscribe": true},
      "clients": [], "groups": [], "roles": []})";
  broker_ = std::make_unique<MqttBroker>(std::vector<std::string>{
      "user root", "allow_anonymous true", "plugin " MOSQUITTO_DYNAMIC_SECURITY,
      "plugin_opt_config_file " + rules});
  rig_.LaunchAgent({}, broker_->port());
  EXPECT_TRUE(AgentPrints(
      "the broker refuses the subscription to cameras/RIG0001/request/#: Not authorized (0x87); "
      "look at what it allows this user"));
}

TEST_F(Security, LetsNobodyInWithoutACertificateOrWithAWrongPassword) {
  SetUpBroker("CAM0002");
  rig_.LaunchAgent({"--ca", Path("ca.pem")}, certificate_port_);
  EXPECT_TRUE(AgentPrints("the broker wants a client certificate; give one with --cert and --key"));
  std::ofstream(Path("RIG0001.password")) << "wrong\n";
  rig_.LaunchAgent(WithPassword(rig_.sn), password_port_);
  EXPECT_TRUE(AgentPrints("no connection to 127.0.0.1:" + std::to_string(password_port_)));
  EXPECT_FALSE(AgentIsConnected());
}

}  // namespace
