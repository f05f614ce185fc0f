// The MQTT link: keeps a connection to the broker up from a thread of its own.
#pragma once

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "cloud_agent/link.h"
#include "cloud_agent/mqtt_connection.h"

namespace agent {

class MqttLinkCore;

class MqttLink : public Link {
 public:
  struct Options {
    BrokerOptions broker;
    int backoff_min_ms = 500;
    int backoff_max_ms = 30000;
    int ack_timeout_s = 30;                 ///< a broker that owes one longer is left
    std::size_t max_unacknowledged = 256;   ///< of Publish(); more are turned away
    std::size_t max_requests_waiting = 64;  ///< for the event thread
  };

  /// @param post runs a task on the event thread; callable from any thread.
  /// @param turn_away answers a request that finds too many waiting; called on the
  ///                  network thread.
  MqttLink(Options options, std::function<void(std::function<void()>)> post,
           std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away);
  ~MqttLink() override;

  void Start(LinkListener* listener) override;
  Publication Publish(const OutboundMessage& message) override;
  PublishResult Send(const OutboundMessage& message) override;
  std::uint64_t TurnedAwayRequests() const override;
  void Stop(const OutboundMessage& last) override;

 private:
  // Shared with the network thread, which may be left behind in a name look-up.
  std::shared_ptr<MqttLinkCore> core_;
  std::thread thread_;
};

}  // namespace agent
