// The host of one plug-in: what the plug-in and the cloud have to do with each other.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>
#include <boost/shared_ptr.hpp>

#include "cloud_agent/delivery/auto_push.h"
#include "cloud_agent/delivery/host_duties.h"
#include "cloud_agent/mqtt/link.h"
#include "cloud_agent/pictures/picture_store.h"
#include "cloud_agent/plugin.h"
#include "cloud_agent/requests/request_line.h"
#include "cloud_agent/requests/request_runner.h"
#include "cloud_agent/screen/screen.h"
#include "cloud_agent/status/device_health.h"
#include "cloud_agent/status/status.h"
#include "cloud_agent/trace/agent_trace.h"
#include "sigslot.h"
#include "tarvex/dp_client.h"

namespace agent {

/// Everything happens on the event thread. Life cycle: Start() once, Shutdown() once.
///
/// The plug-in listens to the device's events only while the link stands: what happens
/// during an outage stays in the camera's store, and after every connection the plug-in
/// tells the cloud how many results that are.
class Agent : public sigslot::has_slots<sigslot::single_threaded>, private LinkListener {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Options {
    RequestRunner::Options requests;
    DeliveryGuard::Options guard;
    Versions versions;
    int status_interval_s = 10;
    int ack_timeout_s = 30;  ///< a broker that owes one longer is left
    bool auto_push = false;
    double clock_scale = 1.0;  ///< of the event service's delayed messages
  };

  /// What the agent works with. Nothing is owned but the functions and shared pointers;
  /// the rest outlives the agent.
  struct Parts {
    std::function<void(std::function<void()>)> post;  ///< to the event thread, in order
    std::function<void(std::chrono::milliseconds, std::function<void()>)> post_after;
    std::function<TimePoint()> now;  ///< the time of post_after
    std::function<AdapterPtr()> create_adapter;
    Link* link = nullptr;
    RequestLine* requests = nullptr;  ///< what the link puts requests into
    PictureStore* pictures = nullptr;
    Screen* screen = nullptr;
    boost::shared_ptr<tarvex::DpClient> bus;  ///< for the store's figures; may be empty
    AgentTrace* trace = nullptr;              ///< null: nothing is told
  };

  Agent(const Options& options, Parts parts);
  ~Agent() override;

  /// Makes the adapter and initialises it, then starts the link.
  /// @return false, after a line in the log, when there is no adapter.
  bool Start();

  /// Publishes that the camera is offline, disconnects, and destroys the adapter. Takes a
  /// few seconds at most.
  /// @return as Link::Stop().
  bool Shutdown();

  /// For tarvex::SetBusGate().
  void OnBusMessage(const tarvex::DpMessage& message, std::function<void()> deliver);

  /// For tarvex::SetBusWatch().
  void OnBusRequest(const tarvex::BusRequest& request);

  StatusCounters Counters() const;

 private:
  void OnPushMessage(const std::string& name, const Json::Value& payload,
                     const std::string& version, unsigned long long tag);
  void OnLinkUp(int subscription_code) override;
  void OnLinkDown(const std::string& reason) override;
  void OnAcknowledged(std::uint64_t publication, int reason_code) override;

  std::string StorePicture(const std::string& source, const std::string& name);
  void Publish(const std::string& name, const Json::Value& payload, const std::string& version,
               unsigned long long tag);
  /// @return false when the message is larger than the broker takes.
  bool SendResponse(const OutboundMessage& message);
  /// @return empty when the message is on its way.
  std::optional<Fate> SendToBroker(const OutboundMessage& message, Sent sent);
  void Settle(std::uint64_t publication, int reason_code);
  void NoteNotPublished(const std::string& name, const Sent& sent, Fate fate);
  void NoteAnswer(const Sent& sent, Fate fate);
  void LogRefusal(const std::string& what, int reason_code, std::optional<TimePoint>* logged_at);
  void SubscribeMissing();
  bool RunRequest(const std::string& name, const Json::Value& payload, const std::string& version,
                  Json::Value& response);
  void Confirm(unsigned long long tag);
  void Push(int max_count);
  void LookForWork();
  std::optional<Undelivered> AskForUndelivered() const;
  void SendStatus();
  Status PresentStatus(const std::optional<Undelivered>& undelivered) const;
  void LeaveBrokerThatOwes();
  void Repeat(std::chrono::seconds interval, void (Agent::*task)());

  const Options options_;
  Parts parts_;
  AdapterPtr adapter_;
  std::set<std::string> request_names_;
  std::set<std::string> publishes_;
  std::set<std::string> not_subscribed_;   ///< of publishes_, while the link stands
  std::vector<std::string> new_pictures_;  ///< stored since the latest publication
  DeliveryGuard guard_;
  AutoPush auto_push_;
  RequestRunner requests_;
  DeviceHealth health_;
  StatusCounters counters_;  ///< those that nobody else counts
  std::optional<TimePoint> publication_refusal_logged_at_;
  std::optional<TimePoint> subscription_refusal_logged_at_;
  const std::chrono::system_clock::time_point started_at_ = std::chrono::system_clock::now();
  bool is_link_up_ = false;
};

}  // namespace agent
