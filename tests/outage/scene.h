// The desk of the outage run, and everything that can go wrong with it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "console/link/tcp_proxy.h"
#include "outage/journal.h"
#include "outage/store_reader.h"
#include "platform/nats_link.h"
#include "support/rig.h"

/// The rig with a proxy between agent and broker, an independent subscriber at the
/// broker itself, and a listener on the device bus.
class Scene {
 public:
  struct Options {
    double cars_per_second = 50;
    double clock_scale = 500;
    std::vector<std::string> agent_options;
  };

  Scene(const RigPrograms& programs, const Options& options);
  ~Scene();

  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // The faults. Each returns when what it broke runs again, or is cut for good.
  void CutLink(std::size_t after_bytes);
  void KillBroker();
  void FreezeBroker();
  void KillBus();
  void KillCamera();
  void KillAgent();

  // Two that look at what a loss of power would leave of the camera's store. @return how
  // much is wrong with it.
  std::uint64_t CopyStore();  ///< the camera goes on
  std::uint64_t CutPower();   ///< the camera begins again with the copy

  /// No car passes from now on.
  void StopCars();

  /// Asks for re-delivery until nothing is undelivered any more.
  /// @return whether that was reached.
  bool DrainStore(std::chrono::milliseconds deadline);

  /// Waits until the agent has a connection.
  bool AwaitAgent();

  const Journal& journal() const { return journal_; }
  /// Throws std::runtime_error when a camera without power did not start again.
  const StoreReader& store() const;
  /// The end of what the agent has written.
  std::string AgentLog() const;

 private:
  void StartCamera(double cars_per_second);
  void StartAgent();
  void Listen();
  std::filesystem::path CameraDirectory() const { return rig_.directory.path() / "camera"; }
  void OpenStore();
  std::uint64_t CountFaults(const StoreReader& store, const std::set<std::uint32_t>& announced);

  const Options options_;
  Journal journal_;
  Rig rig_;
  console::TcpProxy proxy_;
  std::unique_ptr<MqttClient> subscriber_;
  std::shared_ptr<tarvex::NatsLink> bus_link_;
  natsSubscription* bus_subscription_ = nullptr;
  std::unique_ptr<StoreReader> store_;
  std::uint32_t pictures_checked_ = 0;  // up to this plate id
};
