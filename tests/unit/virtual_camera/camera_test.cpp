// The whole camera on a real bus and real key-value databases.
#include "virtual_camera/camera.h"

#include <fstream>
#include <future>
#include <thread>

#include "desk_camera.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "support/child_process.h"
#include "support/nats_server.h"
#include "support/wait_until.h"
#include "virtual_camera/ctl/ctl_client.h"

namespace virtual_camera {
namespace {

// Points the fixed addresses to the servers of a test, for as long as it lives.
class Redirection {
 public:
  Redirection(const std::string& bus, const std::string& key_values) {
    setenv("TARVEX_BUS_ADDRESS", bus.c_str(), 1);
    setenv("TARVEX_KV_ADDRESS", key_values.c_str(), 1);
  }
  ~Redirection() {
    unsetenv("TARVEX_BUS_ADDRESS");
    unsetenv("TARVEX_KV_ADDRESS");
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;
};

class RunningCamera : public testing::Test {
 protected:
  RunningCamera() {
    options.device.data = directory.path();
    options.device.pictures.width = 64;
    options.device.reboot_seconds = 0.3;
  }
  ~RunningCamera() override { SwitchOff(); }

  void SwitchOn() {
    ready = std::promise<void>();
    camera = std::make_unique<Camera>(options, [this] { ready.set_value(); });
    thread = std::thread([this] { camera->Run(); });
  }

  bool BecomesReady() {
    return ready.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  }

  void SwitchOff() {
    if (camera) {
      camera->Stop();
      thread.join();
      camera.reset();
    }
  }

  natsConnection* Client() {
    if (!link) {
      link = tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", bus.port()), "test");
    }
    return link->get();
  }

  /// An answer's bytes, or what the library says of the failure.
  std::string Ask(const std::string& queue, const std::string& request, int64_t timeout_ms = 5000) {
    natsMsg* raw = nullptr;
    const natsStatus status =
        natsConnection_RequestString(&raw, Client(), queue.c_str(), request.c_str(), timeout_ms);
    const tarvex::NatsMessage message(raw);
    return status == NATS_OK
               ? std::string(natsMsg_GetData(raw), static_cast<size_t>(natsMsg_GetDataLength(raw)))
               : natsStatus_GetText(status);
  }

  std::string OutputState(int64_t timeout_ms = 5000) {
    return Ask("EVS_BUS_REQUEST", R"({"type":"evs_get_gpioout","body":{"source":0}})", timeout_ms);
  }

  Json::Value Command(const std::string& command) { return CtlClient().Send(Parsed(command)); }

  /// A value in the databases, or "(none)".
  std::string InDatabase(const std::string& database, const std::string& key) {
    const auto server =
        tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", key_values.port()), "test");
    jsCtx* raw_context = nullptr;
    if (natsConnection_JetStream(&raw_context, server->get(), nullptr) != NATS_OK) {
      return "(none)";
    }
    const tarvex::NatsJetStream context(raw_context);
    kvStore* raw_store = nullptr;
    if (js_KeyValue(&raw_store, raw_context, database.c_str()) != NATS_OK) {
      return "(none)";
    }
    const tarvex::NatsStore store(raw_store);
    kvEntry* entry = nullptr;
    if (kvStore_Get(&entry, raw_store, key.c_str()) != NATS_OK) {
      return "(none)";
    }
    std::string value(kvEntry_ValueString(entry));
    kvEntry_Destroy(entry);
    return value;
  }

  NatsServer bus;
  NatsServer key_values{NatsServer::Storage::kJetStream};
  Redirection redirection{bus.address(), key_values.address()};
  TestDirectory directory;
  CameraOptions options;
  std::unique_ptr<Camera> camera;
  std::thread thread;
  std::promise<void> ready;
  std::shared_ptr<tarvex::NatsLink> link;
};

constexpr char kOutputIsOff[] = R"({"body":{"gpio_out_status":0,"source":0},"state_code":200})";
constexpr char kNobodyServes[] = "No responders available for request";

TEST_F(RunningCamera, AnswersAsSoonAsItIsReady) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(OutputState(), kOutputIsOff);
}

TEST_F(RunningCamera, WaitsForItsBus) {
  bus.Kill();
  SwitchOn();
  bus.Start();
  ASSERT_TRUE(BecomesReady());
  EXPECT_TRUE(WaitUntil([this] { return OutputState() == kOutputIsOff; }));
}

TEST_F(RunningCamera, PublishesTheCarsOfACommand) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  natsSubscription* raw = nullptr;
  ASSERT_EQ(natsConnection_SubscribeSync(&raw, Client(), "BUS_SRV_IVS_RESULT"), NATS_OK);
  const tarvex::NatsSubscription subscription(raw);
  natsConnection_Flush(Client());
  Command(R"({"command":"car","plate":"AB123CD"})");
  natsMsg* message = nullptr;
  ASSERT_EQ(natsSubscription_NextMsg(&message, raw, 5000), NATS_OK);
  const tarvex::NatsMessage owner(message);
  EXPECT_EQ(natsMsg_GetDataLength(message), 552);
  EXPECT_STREQ(natsMsg_GetData(message), "AB123CD");
}

TEST_F(RunningCamera, HasCarsPassByThemselves) {
  options.cars_per_minute = 6000;
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  EXPECT_TRUE(WaitUntil([this] {
    return Command(R"({"command":"state"})")["state"]["results"]["recognised"].asInt() > 5;
  }));
}

TEST_F(RunningCamera, IsNotServedWhereItIsDownAndComesUpAgain) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  Command(R"({"command":"service","queue":"EVS_BUS_REQUEST","mode":"down"})");
  EXPECT_EQ(OutputState(), kNobodyServes);
  Command(R"({"command":"service","queue":"EVS_BUS_REQUEST","mode":"up"})");
  EXPECT_EQ(OutputState(), kOutputIsOff);
}

TEST_F(RunningCamera, AnswersLateOrWithNonsenseOnCommand) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  Command(R"({"command":"service","queue":"EVS_BUS_REQUEST","mode":"slow","delay_ms":400})");
  EXPECT_EQ(Ask("EVS_BUS_REQUEST", "{}", 50), "Timeout");
  EXPECT_EQ(OutputState(), kOutputIsOff);
  Command(R"({"command":"service","queue":"EVS_BUS_REQUEST","mode":"garbage"})");
  Json::Value parsed;
  EXPECT_FALSE(Json::String2Json(OutputState(), parsed));
}

TEST_F(RunningCamera, IsSilentDuringARebootAndComesBack) {
  options.device.reboot_seconds = 3;  // long enough to be asked in the midst of it
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(Ask("SS_BUS_REQUEST", R"({"type":"reboot_dev"})"), R"({"body":{},"state_code":200})");
  // A request that is under way as the silence begins is not to wait until its end.
  EXPECT_TRUE(WaitUntil([this] { return OutputState(50) == kNobodyServes; }));
  EXPECT_TRUE(WaitUntil([this] { return OutputState() == kOutputIsOff; }));
}

TEST_F(RunningCamera, ServesAgainAfterTheBusWasKilled) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(OutputState(), kOutputIsOff);
  bus.Kill();
  bus.Start();
  EXPECT_TRUE(WaitUntil([this] { return OutputState() == kOutputIsOff; }));
}

TEST_F(RunningCamera, KeepsRecognisingWhileTheBusIsAway) {
  options.cars_per_minute = 6000;
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  bus.Kill();
  Database database(directory.path() + "/camera.db");
  Statement count(database, "SELECT count(*) FROM results");
  const auto stored = [&count] {
    count.Step();
    const int64_t rows = count.Int(0);
    count.Reset();
    return rows;
  };
  const int64_t before = stored();
  EXPECT_TRUE(WaitUntil([&] { return stored() > before + 5; }));
  bus.Start();
  EXPECT_TRUE(WaitUntil([this] { return OutputState() == kOutputIsOff; }));
  EXPECT_GT(Command(R"({"command":"state"})")["state"]["announced"]["BUS_SRV_IVS_RESULT"]["missed"]
                .asInt(),
            0);
}

TEST_F(RunningCamera, FillsTheDatabases) {
  SwitchOn();
  EXPECT_TRUE(WaitUntil(
      [this] { return InDatabase("usr_data_kvdb", "bus_cipher_data") == "virtual-camera"; }));
  EXPECT_EQ(InDatabase("skvdb", "dev_name"), "VmlydHVhbCBjYW1lcmE=");
  EXPECT_EQ(InDatabase("skvdb", "net_rj45"), R"({"ip":"192.168.1.100"})");
}

TEST_F(RunningCamera, FillsDatabasesThatComeBackEmpty) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  ASSERT_TRUE(WaitUntil([this] { return InDatabase("skvdb", "dev_name") != "(none)"; }));
  Command(R"({"command":"rename","name":"Gate 7"})");
  key_values.Kill();
  key_values.ForgetData();
  key_values.Start();
  EXPECT_TRUE(WaitUntil([this] { return InDatabase("skvdb", "dev_name") == "R2F0ZSA3"; }));
}

TEST_F(RunningCamera, FillsInANameThatItWasGivenWhileTheDatabasesWereAway) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  ASSERT_TRUE(
      WaitUntil([this] { return InDatabase("usr_data_kvdb", "bus_cipher_data") != "(none)"; }));
  key_values.Kill();
  ASSERT_TRUE(WaitUntil(
      [this] { return Command(R"({"command":"rename","name":"Gate 7"})").isMember("warning"); }));
  key_values.Start();
  EXPECT_TRUE(WaitUntil([this] { return InDatabase("skvdb", "dev_name") == "R2F0ZSA3"; }));
}

TEST_F(RunningCamera, ReplaysAFile) {
  options.replay_file = directory.path() + "/capture.bin";
  options.replay_per_second = 1000;
  std::string record(552, '\0');
  record[0] = 'R';
  record[80] = 77;
  std::ofstream(options.replay_file, std::ios::binary) << record;
  SwitchOn();
  EXPECT_TRUE(
      WaitUntil([&] { return Ask("BUS_GET_IVS_INFO", R"({"type":"get_last_ivs"})") == record; }));
}

TEST_F(RunningCamera, IsRecordedFromTheBus) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  const std::string path = directory.path() + "/capture.bin";
  auto recording = std::async(
      std::launch::async, [&path] { return CtlClient().Record(path, 2, [] { return false; }); });
  // Cars go on passing until the recorder, which takes a moment to listen, has enough.
  EXPECT_TRUE(WaitUntil([&] {
    Command(R"({"command":"car"})");
    return recording.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }));
  EXPECT_EQ(recording.get(), 2);
  EXPECT_EQ(std::filesystem::file_size(path), 2U * 552U);
}

TEST_F(RunningCamera, IsRecordedUntilASignalEndsIt) {
  ChildProcess ctl({CAMERA_CTL, "records", directory.path() + "/capture.bin"},
                   directory.path() + "/log");
  ASSERT_TRUE(WaitUntil([&] { return ctl.Output().find("recording to") != std::string::npos; }));
  ctl.Signal(SIGINT);
  EXPECT_TRUE(ctl.WaitForExit());
  EXPECT_EQ(ctl.exit_code(), 0);
  EXPECT_NE(ctl.Output().find("0 records"), std::string::npos);
}

TEST_F(RunningCamera, IsNotSaidToBeRecordedOnADiskWithoutRoom) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  auto recording = std::async(
      std::launch::async, [] { return CtlClient().Record("/dev/full", 1, [] { return false; }); });
  EXPECT_TRUE(WaitUntil([&] {
    Command(R"({"command":"car"})");
    return recording.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }));
  EXPECT_THROW(recording.get(), std::runtime_error);
}

TEST_F(RunningCamera, IsMissedByACommandWhenItIsOff) {
  try {
    Command(R"({"command":"state"})");
    FAIL() << "answered";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), "no camera listens on the bus at " + bus.address());
  }
}

TEST_F(RunningCamera, SaysWhyItRefusesACommand) {
  SwitchOn();
  ASSERT_TRUE(BecomesReady());
  EXPECT_THROW(
      {
        try {
          Command(R"({"command":"readdress","ip":"nowhere"})");
        } catch (const std::runtime_error& error) {
          EXPECT_STREQ(error.what(), "\"nowhere\" is not an IP address");
          throw;
        }
      },
      std::runtime_error);
}

}  // namespace
}  // namespace virtual_camera
