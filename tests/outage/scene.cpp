#include "outage/scene.h"

#include <nats/nats.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "outage/power_cut.h"
#include "support/wait_until.h"

namespace {

constexpr auto kLong = std::chrono::milliseconds(60000);

/// Longer than the keep-alive of the rig's agents, so that a frozen broker is given up.
constexpr auto kFreeze = std::chrono::milliseconds(5000);

/// How much of the agent's log is shown when something went wrong.
constexpr size_t kLogTail = 6000;

void Require(bool condition, const char* what) {
  if (!condition) {
    throw std::runtime_error(what);
  }
}

}  // namespace

Scene::Scene(const RigPrograms& programs, const Options& options)
    : options_(options), rig_(programs), proxy_(rig_.broker.port()) {
  rig_.more_environment["TARVEX_CLOCK_SCALE"] = std::to_string(options.clock_scale);
  rig_.more_environment["TARVEX_LOG_LEVEL"] = "4";
  setenv("TARVEX_LOG_LEVEL", "3", 1);
  subscriber_ = std::make_unique<MqttClient>(
      rig_.broker.port(), rig_.Topic("message/ivs_result"),
      [this](const MqttClient::Message& message) { journal_.Receive(message.payload); });
  Listen();
  StartCamera(options.cars_per_second);
  OpenStore();
  StartAgent();
  if (!AwaitAgent()) {
    throw std::runtime_error("the agent does not get a connection:\n" + AgentLog());
  }
}

Scene::~Scene() {
  natsSubscription_Destroy(bus_subscription_);
  bus_link_.reset();
}

void Scene::Listen() {
  const std::string address = rig_.bus.address();
  setenv("TARVEX_BUS_ADDRESS", address.c_str(), 1);
  bus_link_ = tarvex::NatsLink::Connect(tarvex::SocketAddress("127.0.0.1", 6101), "outage");
  Require(bus_link_ != nullptr && WaitUntil([this] { return bus_link_->IsConnected(); }),
          "no connection to the bus");
  natsConnection_Subscribe(
      &bus_subscription_, bus_link_->get(), tarvex::BusSubject("BUS_SRV_IVS_RESULT").c_str(),
      [](natsConnection*, natsSubscription*, natsMsg* message, void* self) {
        static_cast<Scene*>(self)->journal_.Announce(std::string(
            natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message))));
        natsMsg_Destroy(message);
      },
      this);
}

void Scene::StartCamera(double cars_per_second) {
  rig_.StartCamera({"--cars-per-minute", std::to_string(cars_per_second * 60), "--picture-width",
                    "64", "--picture-quality", "20", "--keep-results", "10000000"});
}

void Scene::StartAgent() {
  std::vector<std::string> options = options_.agent_options;
  options.insert(options.end(), {"--keep-pictures", "1000"});
  rig_.LaunchAgent(options, proxy_.port());
}

void Scene::CutLink(std::size_t after_bytes) {
  const int cuts = proxy_.cuts();
  proxy_.CutAfter(after_bytes);
  // Without traffic nothing is cut; with it this takes no time.
  WaitUntil([&] { return proxy_.cuts() > cuts; }, kLong);
}

void Scene::KillBroker() {
  // The agent may not be back before the subscriber: a broker forgets what nobody has
  // subscribed to.
  proxy_.RefuseNew(true);
  rig_.broker.Kill();
  Require(WaitUntil([this] { return !subscriber_->IsSubscribed(); }, kLong),
          "the subscriber does not notice that the broker was killed");
  rig_.broker.Start();
  Require(WaitUntil([this] { return subscriber_->IsSubscribed(); }, kLong),
          "the subscriber does not get back to the broker");
  proxy_.RefuseNew(false);
}

void Scene::FreezeBroker() {
  rig_.broker.Freeze();
  // The one pause of real time: what is looked at is a keep-alive that runs out.
  std::this_thread::sleep_for(kFreeze);
  rig_.broker.Thaw();
}

void Scene::KillBus() {
  rig_.bus.Kill();
  rig_.bus.Start();
}

void Scene::KillCamera() {
  rig_.camera->Kill();
  StartCamera(options_.cars_per_second);
}

void Scene::KillAgent() {
  rig_.agent->Kill();
  StartAgent();
}

std::uint64_t Scene::CopyStore() {
  const TempDirectory copy;
  const std::set<std::uint32_t> announced = journal_.Announced();
  store_.reset();  // its locks would go with the first descriptor of the files that is closed
  rig_.camera->Freeze();
  CopyStoreFiles(CameraDirectory(), copy.path());
  rig_.camera->Thaw();
  OpenStore();
  const StoreReader copied((copy.path() / "camera.db").string(), StoreReader::Kind::kCutOff);
  return CountFaults(copied, announced);
}

std::uint64_t Scene::CutPower() {
  const TempDirectory copy;
  const std::set<std::uint32_t> announced = journal_.Announced();
  store_.reset();
  rig_.camera->Freeze();
  CopyStoreFiles(CameraDirectory(), copy.path());
  rig_.camera->Kill();
  for (const char* file : {"camera.db", "camera.db-wal", "camera.db-shm"}) {
    std::filesystem::remove(CameraDirectory() / file);
  }
  CopyStoreFiles(copy.path(), CameraDirectory());
  StartCamera(options_.cars_per_second);
  OpenStore();
  return CountFaults(*store_, announced);
}

const StoreReader& Scene::store() const {
  Require(store_ != nullptr, "there is no store to be read");
  return *store_;
}

void Scene::OpenStore() {
  store_ = std::make_unique<StoreReader>((CameraDirectory() / "camera.db").string());
}

std::uint64_t Scene::CountFaults(const StoreReader& store,
                                 const std::set<std::uint32_t>& announced) {
  return CountFaultsOf(store, announced, journal_, CameraDirectory() / "pictures",
                       &pictures_checked_);
}

void Scene::StopCars() {
  rig_.camera->Terminate();
  StartCamera(0);
}

bool Scene::AwaitAgent() {
  return WaitUntil(
      [this] {
        const std::string log = rig_.agent->Output();
        const size_t connected = log.rfind("broker connected");
        const size_t lost = log.rfind("broker lost");
        return connected != std::string::npos && (lost == std::string::npos || lost < connected);
      },
      kLong);
}

std::string Scene::AgentLog() const {
  const std::string log = rig_.agent->Output();
  return log.size() > kLogTail ? log.substr(log.size() - kLogTail) : log;
}

bool Scene::DrainStore(std::chrono::milliseconds deadline) {
  std::uint64_t left_before = 0;
  return WaitUntil(
      [this, &left_before] {
        const std::uint64_t left = store_->CountUndelivered();
        if (left == 0) {
          return true;
        }
        // A running re-delivery is left alone; one that has ended is asked for again.
        if (left == left_before) {
          rig_.cloud->Forget();
          try {
            rig_.Request("check_offline_record",
                         R"({"enable":"push","max_count":1000000,"min_id":0})");
          } catch (const std::runtime_error& error) {
            fprintf(stderr, "outage: %s; asking again\n", error.what());
          }
        }
        left_before = left;
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));
        return false;
      },
      deadline);
}
