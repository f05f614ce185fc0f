// The console with the whole desk behind it, asked as its page asks it, and as others might.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "rig_test.h"
#include "support/loopback_port.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ConsoleRig : public RigTest {
 protected:
  ConsoleRig() {
    rig_.StartCamera({"--trace"});
    // The port of the link is taken by another program now and then.
    for (int attempt = 0; attempt < 5 && port_ == 0; ++attempt) {
      StartConsole(FreeLoopbackPort());
    }
  }

  ~ConsoleRig() override {
    for (const int open : sockets_) {
      close(open);
    }
  }

  void StartConsole(int link_port) {
    link_port_ = link_port;
    const std::string pictures = (rig_.directory.path() / "pictures").string();
    const std::string sources = RIG_SOURCES;
    console_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{RIG_CONSOLE, "--port", "0", "--broker",
                                 "127.0.0.1:" + std::to_string(rig_.broker.port()), "--link-port",
                                 std::to_string(link_port), "--page", sources + "/src/console/page",
                                 "--contract", sources + "/contract/asyncapi.json", "--pictures",
                                 rig_.sn + "=" + pictures, "--agent-pid",
                                 rig_.sn + "=" + PidFile()},
        (rig_.directory.path() / ("console" + std::to_string(link_port) + ".log")).string(),
        rig_.Environment());
    const std::string ready = "console ready: http://127.0.0.1:";
    WaitUntil([&] {
      const std::string output = console_->Output();
      const std::size_t at = output.find(ready);
      port_ = at == std::string::npos || output.find('\n', at) == std::string::npos
                  ? 0
                  : std::stoi(output.substr(at + ready.size()));
      return port_ != 0 || !console_->IsRunning();
    });
  }

  void StartAgentBehindTheLink() {
    rig_.StartAgent({"--trace", "--picture-url",
                     "http://127.0.0.1:" + std::to_string(port_) + "/pictures/" + rig_.sn},
                    link_port_);
    std::ofstream(PidFile()) << rig_.agent->pid();
  }

  std::string PidFile() const { return (rig_.directory.path() / "agent.pid").string(); }

  std::string Own() const { return "127.0.0.1:" + std::to_string(port_); }

  /// Sends bytes to the console, and leaves the connection open.
  int Send(const std::string& bytes) {
    const int connection = socket(AF_INET, SOCK_STREAM, 0);
    sockets_.push_back(connection);
    const sockaddr_in address = LoopbackAddress(port_);
    EXPECT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count =
          send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) {
        break;  // the console does not want more
      }
      sent += static_cast<std::size_t>(count);
    }
    return connection;
  }

  /// Sends bytes and reads until the console ends the connection.
  std::string Ask(const std::string& bytes) {
    const int connection = Send(bytes);
    std::string answer;
    char buffer[4096];
    for (ssize_t count = 0; (count = recv(connection, buffer, sizeof(buffer), 0)) > 0;) {
      answer.append(buffer, static_cast<std::size_t>(count));
    }
    return answer;
  }

  std::string OpeningOfAWebSocket() const {
    return "GET /ws HTTP/1.1\r\nHost: " + Own() + "\r\nOrigin: http://" + Own() +
           "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
  }

  /// Opens a WebSocket as the page does, and waits until it has said so.
  bool PageHears(const std::string& text) {
    const int connection = Send(OpeningOfAWebSocket());
    std::string heard;
    return WaitUntil([&] {
      char buffer[4096];
      const ssize_t count = recv(connection, buffer, sizeof(buffer), MSG_DONTWAIT);
      heard.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
      return heard.find(text) != std::string::npos;
    });
  }

  std::string Get(const std::string& path) {
    return Ask("GET " + path + " HTTP/1.0\r\nHost: " + Own() + "\r\n\r\n");
  }

  static std::string BodyOf(const std::string& answer) {
    return answer.substr(std::min(answer.find("\r\n\r\n") + 4, answer.size()));
  }

  std::string Token() {
    const std::string page = Get("/");
    const std::string mark = "name=\"console-token\" content=\"";
    return page.substr(page.find(mark) + mark.size(), 32);
  }

  std::string Post(const std::string& path, const std::string& body, const std::string& host,
                   const std::string& origin, const std::string& token) {
    return Ask("POST " + path + " HTTP/1.0\r\nHost: " + host + "\r\n" +
               (origin.empty() ? "" : "Origin: " + origin + "\r\n") +
               (token.empty() ? "" : "X-Console-Token: " + token + "\r\n") +
               "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }

  /// As the page does it.
  std::string Post(const std::string& path, const std::string& body) {
    return Post(path, body, Own(), "http://" + Own(), Token());
  }

  std::string Api(const std::string& rest) const { return "/api/cameras/" + rig_.sn + "/" + rest; }

  std::string PassportText(const std::string& id) {
    try {
      return rig_.Ctl({"trace", id});
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  std::unique_ptr<ChildProcess> console_;
  int port_ = 0;
  int link_port_ = 0;
  std::vector<int> sockets_;
};

TEST_F(ConsoleRig, KnowsTheWholeWayOfAResult) {
  StartAgentBehindTheLink();
  rig_.Ctl({"car", "AB12345"});
  const Json::Value published = AwaitPlate("AB12345");
  EXPECT_TRUE(WaitUntil([this] {
    const std::string text = PassportText("1");
    return text.find("delivered  plate AB12345") != std::string::npos &&
           text.find("at_the_broker") != std::string::npos;
  })) << PassportText("1");
  const std::string url = FromBase64(PlateResult(published)["imagePath"].asString());
  ASSERT_THAT(url, StartsWith("http://" + Own() + "/pictures/"));
  const std::string picture = Get(url.substr(url.find("/pictures/")));
  EXPECT_THAT(picture, HasSubstr("200 OK"));
  EXPECT_THAT(BodyOf(picture), StartsWith("\xFF\xD8\xFF"));
}

TEST_F(ConsoleRig, SendsARequestAndKnowsItsWay) {
  StartAgentBehindTheLink();
  const std::string sent =
      Post(Api("requests/gpio_out"),
           R"({"id":7,"version":"1.0","payload":{"type":"gpio_out","body":{"io":1,"value":1}}})");
  ASSERT_THAT(sent, HasSubstr("200 OK"));
  const std::string id = ParseJson(BodyOf(sent))["passport"].asString();
  EXPECT_TRUE(WaitUntil([&] {
    const std::string text = PassportText(id);
    return text.find("answered") != std::string::npos &&
           text.find("EVS_GPIO_CONTROL") != std::string::npos;
  })) << PassportText(id);
  EXPECT_EQ(rig_.CameraState()["gpio"]["outputs"][1].asInt(), 1);
}

TEST_F(ConsoleRig, HasTheRecordOfAResultThatItHasNotHeard) {
  rig_.Ctl({"car", "AB12345"});
  console_->Terminate();
  StartConsole(link_port_);
  StartAgentBehindTheLink();
  rig_.Request("check_offline_record", R"({"enable":"push","max_count":10,"min_id":0})");
  EXPECT_TRUE(WaitUntil([this] {
    const std::string text = PassportText("1");
    return text.find("plate AB12345") != std::string::npos &&
           text.find("STP_SELECT_MQTT_OFFLINE_RECORD") != std::string::npos;
  })) << PassportText("1");
}

TEST_F(ConsoleRig, CutsTheLinkAndSaysWhatBecameOfTheResults) {
  rig_.more_environment["TARVEX_CLOCK_SCALE"] = "10";
  StartAgentBehindTheLink();
  ASSERT_TRUE(PageHears("is online"));
  EXPECT_THAT(Post("/api/link", R"({"mode":"cut"})"), HasSubstr("200 OK"));
  ASSERT_TRUE(rig_.AwaitOnline(false));
  for (int car = 0; car < 3; ++car) {
    rig_.Ctl({"car"});
  }
  EXPECT_THAT(Post("/api/link", R"({"mode":"whole"})"), HasSubstr("200 OK"));
  ASSERT_TRUE(rig_.AwaitOnline(true));
  rig_.Request("check_offline_record", R"({"enable":"push","max_count":10,"min_id":0})");
  EXPECT_TRUE(PageHears("The outage is over: 3 results stored, 3 arrived, nothing was lost"));
}

TEST_F(ConsoleRig, RefusesALinkThatThereIsNot) {
  EXPECT_THAT(Post("/api/link", R"({"mode":"bent"})"), HasSubstr("400"));
  EXPECT_THAT(Post("/api/link", R"({"mode":"limping","delay_ms":-1})"), HasSubstr("400"));
  EXPECT_THAT(Post("/api/link", "no JSON"), HasSubstr("400"));
}

TEST_F(ConsoleRig, RestartsTheAgent) {
  StartAgentBehindTheLink();
  EXPECT_THAT(Post(Api("restart-agent"), "{}"), HasSubstr("200 OK"));
  EXPECT_TRUE(rig_.agent->WaitForExit());
  EXPECT_THAT(Post(Api("restart-agent"), "{}"), HasSubstr("502"));
}

TEST_F(ConsoleRig, HasACarPassAndSaysWhatTheCameraRefuses) {
  EXPECT_THAT(Post(Api("world"), R"({"command":"car","plate":"AB12345"})"),
              HasSubstr("\"plate\":\"AB12345\""));
  EXPECT_THAT(Post(Api("world"), R"({"command":"car","plate":""})"),
              HasSubstr("a plate has 1 to 15 bytes"));
  EXPECT_THAT(Get(Api("scene.jpg")), HasSubstr("Content-Type: image/jpeg"));
  EXPECT_THAT(Get(Api("white-list")), HasSubstr("\"total\":0"));
  rig_.camera->Terminate();
  EXPECT_THAT(Post(Api("world"), R"({"command":"car"})"), HasSubstr("no camera listens"));
  EXPECT_THAT(Get(Api("scene.jpg")), HasSubstr("502"));
}

TEST_F(ConsoleRig, CountsForPrometheus) {
  StartAgentBehindTheLink();
  rig_.Ctl({"car", "AB12345"});
  EXPECT_TRUE(WaitUntil([this] {
    return Get("/metrics").find("step=\"delivered\"} 1") != std::string::npos;
  })) << Get("/metrics");
}

TEST_F(ConsoleRig, LetsNoOtherPageChangeAnything) {
  const std::string path = Api("world");
  const std::string command = R"({"command":"gpio-in","input":1,"level":1})";
  const std::string token = Token();
  const std::string origin = "http://" + Own();
  for (const std::string& answer : {
           Post(path, command, Own(), "http://evil.example", token),
           Post(path, command, Own(), "null", token),
           Post(path, command, Own(), "", token),
           Post(path, command, "evil.example", "http://evil.example", token),
           Post(path, command, Own(), origin, ""),
           Post(path, command, Own(), origin, std::string(32, '0')),
           Ask("GET / HTTP/1.0\r\nHost: evil.example\r\n\r\n"),
       }) {
    EXPECT_THAT(answer, HasSubstr("403 Forbidden"));
  }
  EXPECT_EQ(rig_.CameraState()["gpio"]["inputs"][1].asInt(), 0);
  EXPECT_THAT(Post(path, command, Own(), origin, token), HasSubstr("200 OK"));
}

TEST_F(ConsoleRig, ServesNoFileOutsideItsDirectories) {
  StartAgentBehindTheLink();
  for (const std::string& path :
       {"/pictures/" + rig_.sn + "/../agent.pid", "/pictures/" + rig_.sn + "/..%2fagent.pid",
        "/pictures/../pictures/" + rig_.sn, std::string("/pictures/NONE/x.jpg"),
        std::string("/../CMakeLists.txt"), std::string("/%2e%2e/CMakeLists.txt"),
        std::string("//etc/passwd"), std::string("/nothing")}) {
    EXPECT_THAT(Get(path), HasSubstr("404 Not Found")) << path;
  }
}

TEST_F(ConsoleRig, LivesThroughWhatAHostilePageSends) {
  Send(OpeningOfAWebSocket());  // and never reads
  Ask("GET / HTTP/1.1\r\nHost: " + Own() + "\r\nX: " + std::string(10 << 20, 'x') + "\r\n\r\n");
  EXPECT_THAT(Post(Api("requests/get_sn"), std::string(300000, 'x')), HasSubstr("413"));
  EXPECT_THAT(Post(Api("requests/a+b"), "{}"), HasSubstr("400"));
  EXPECT_THAT(Post("/api/cameras/NONE/requests/get_sn", "{}"), HasSubstr("404"));
  Ask("\x80\x01 not HTTP\r\n\r\n");
  for (int i = 0; i < 100; ++i) {
    Send("GET / HT");  // and never the rest
  }
  for (const int open : std::exchange(sockets_, {})) {
    close(open);
  }
  EXPECT_TRUE(WaitUntil([this] { return Get("/").find("200 OK") != std::string::npos; }));
  EXPECT_TRUE(console_->IsRunning());
}

TEST_F(ConsoleRig, SaysThatAPortIsInUse) {
  ChildProcess second({RIG_CONSOLE, "--port", std::to_string(port_), "--page", "/", "--contract",
                       std::string(RIG_SOURCES) + "/contract/asyncapi.json"},
                      (rig_.directory.path() / "second.log").string(), rig_.Environment());
  ASSERT_TRUE(second.WaitForExit());
  EXPECT_EQ(second.exit_code(), 1);
  EXPECT_THAT(second.Output(), HasSubstr("in use"));
}

}  // namespace
