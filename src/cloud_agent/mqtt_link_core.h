// What the MQTT link does on its network thread, and shares with the event thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cloud_agent/ack_ledger.h"
#include "cloud_agent/backoff.h"
#include "cloud_agent/mqtt_connection.h"
#include "cloud_agent/mqtt_link.h"

namespace agent {

/// Shared by the event thread and the network thread, which may outlive the link. The
/// mutex guards what stands below it; it is held while the library publishes, so that an
/// acknowledgement never overtakes the note of what it is for.
class MqttLinkCore : public std::enable_shared_from_this<MqttLinkCore>,
                     private MqttConnectionEvents {
 public:
  MqttLinkCore(MqttLink::Options options, std::function<void(std::function<void()>)> post,
               std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away);

  /// To be called before Run().
  void SetListener(LinkListener* listener) { listener_ = listener; }

  /// The network thread; returns after RequestStop().
  void Run();

  // As those of Link.
  Publication Publish(const OutboundMessage& message);
  PublishResult Send(const OutboundMessage& message);
  std::uint64_t TurnedAway();
  void RequestStop(const OutboundMessage& last);

  /// @return whether Run() is over, which takes a few seconds at the most, except when
  ///         it hangs in the look-up of the broker's name.
  bool WaitUntilFinished();

 private:
  void OnReady() override;
  void OnPuback(int message_id, int reason_code) override;
  void OnRequestArrived(InboundRequest request) override;

  std::string RunConnection();
  void SayGoodbye(MqttConnection* connection);
  bool IsStopping();
  bool IsAckOverdue();
  void EndConnection(const std::string& reason);
  void WaitBeforeNextAttempt(int delay_ms);
  PublishResult SendLocked(const OutboundMessage& message, std::uint64_t publication);
  void PostToListener(std::function<void(LinkListener*)> call);

  const MqttLink::Options options_;
  const std::function<void(std::function<void()>)> post_;
  const std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away_;
  Backoff backoff_;                    // network thread only
  MqttConnection* attempt_ = nullptr;  // network thread only
  LinkListener* listener_ = nullptr;   // set before the network thread starts
  std::uint64_t announced_ = 0;        // event thread only: the connection it knows of

  std::mutex mutex_;
  std::condition_variable changed_;
  MqttConnection* connection_ = nullptr;  // while it stands
  std::uint64_t connection_number_ = 0;
  std::chrono::steady_clock::time_point ready_at_;
  AckLedger ledger_;
  std::uint64_t last_publication_ = 0;
  std::size_t requests_waiting_ = 0;
  std::uint64_t turned_away_ = 0;
  bool is_stopping_ = false;
  bool is_finished_ = false;
};

}  // namespace agent
