// The host of one plug-in: what the plug-in and the cloud have to do with each other.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <json/value.h>
#include <boost/shared_ptr.hpp>

#include "cloud_agent/auto_push.h"
#include "cloud_agent/delivery_guard.h"
#include "cloud_agent/link.h"
#include "cloud_agent/message_line.h"
#include "cloud_agent/picture_store.h"
#include "cloud_agent/plugin.h"
#include "cloud_agent/redelivery_progress.h"
#include "cloud_agent/request_router.h"
#include "cloud_agent/status.h"
#include "platform/bus_gate.h"
#include "sigslot.h"
#include "tarvex/dp_client.h"

namespace agent {

/// Everything happens on the event thread. Life cycle: Start() once, Shutdown() once.
class Agent : public sigslot::has_slots<sigslot::single_threaded>, private LinkListener {
 public:
  struct Options {
    std::string base;  ///< "<root>/<sn>"
    DeliveryGuard::Options guard;
    std::size_t max_request_bytes = std::size_t{256} << 10;
    int status_interval_s = 10;
    bool auto_push = false;
    double clock_scale = 1.0;  ///< of the event service's delayed messages
  };

  /// What the agent works with. Nothing is owned but the functions and shared pointers;
  /// the rest outlives the agent.
  struct Parts {
    std::function<void(std::function<void()>)> post;  ///< to the event thread, in order
    std::function<void(std::chrono::milliseconds, std::function<void()>)> post_after;
    std::function<AdapterPtr()> create_adapter;
    Link* link = nullptr;
    PictureStore* pictures = nullptr;
    LinePrinter* printer = nullptr;           ///< null: nothing is printed
    boost::shared_ptr<tarvex::DpClient> bus;  ///< for the store's figures; may be empty
  };

  Agent(const Options& options, Parts parts);
  ~Agent() override;

  /// Makes the adapter, initialises and subscribes it, then starts the link.
  /// @return false, after a line in the log, when there is no adapter.
  bool Start();

  /// Says goodbye to the cloud, then destroys the adapter. Takes a few seconds at most.
  void Shutdown();

  /// For tarvex::SetBusGate().
  void OnBusMessage(const tarvex::DpMessage& message, std::function<void()> deliver);

  StatusCounters Counters() const;

 private:
  struct Sent {
    unsigned long long tag;
    std::string description;  // empty when nothing is printed
  };

  void OnPushMessage(const std::string& name, const Json::Value& payload,
                     const std::string& version, unsigned long long tag);
  void OnLinkUp() override;
  void OnLinkDown(const std::string& reason) override;
  void OnAcknowledged(std::uint64_t publication, int reason_code) override;
  void OnRequest(const InboundRequest& request) override;

  void Publish(const std::string& name, const Json::Value& payload, const std::string& version,
               unsigned long long tag);
  void FollowRedelivery(unsigned long long tag);
  Publication SendToBroker(const std::string& name, const Json::Value& payload,
                           const std::string& version, unsigned long long tag);
  bool RunRequest(const std::string& name, const Json::Value& payload, const std::string& version,
                  Json::Value& response);
  void Confirm(unsigned long long tag);
  void PushEverything();
  void SendStatus();
  void ScheduleStatus();
  void Print(const std::string& description, Fate fate);

  const Options options_;
  Parts parts_;
  AdapterPtr adapter_;
  std::set<std::string> requests_;
  std::set<std::string> publishes_;
  DeliveryGuard guard_;
  std::unique_ptr<RequestRouter> router_;
  std::unique_ptr<AutoPush> auto_push_;  // null when it is off
  RedeliveryProgress progress_;          // printed, so kept only with a printer
  std::map<std::uint64_t, Sent> sent_;   // by publication, until its fate is known
  StatusCounters counters_;              // those that nobody else counts
  bool is_link_up_ = false;
};

}  // namespace agent
