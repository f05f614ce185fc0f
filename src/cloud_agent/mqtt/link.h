// The link to the cloud as the rest of the agent sees it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace agent {

/// A message to the cloud.
struct OutboundMessage {
  std::string topic;
  std::string payload;
  bool retain = false;
  bool has_correlation_data = false;
  std::string correlation_data;  ///< bytes; sent when has_correlation_data is set
};

/// A request as it came from the broker.
struct InboundRequest {
  using TimePoint = std::chrono::steady_clock::time_point;

  std::string topic;
  std::string payload;   ///< the beginning only when it was larger than the link hands over
  std::size_t size = 0;  ///< bytes of the payload as it arrived
  TimePoint received_at;
  std::optional<std::chrono::seconds> expires_in;  ///< of the message, since received_at
  bool retained = false;                           ///< the sender asked the broker to keep it
  std::string response_topic;                      ///< empty without one
  bool has_correlation_data = false;
  std::string correlation_data;
};

enum class PublishResult {
  kAccepted,  ///< on its way; its acknowledgement or the loss of the link follows
  kLinkDown,  ///< not sent, and not kept
  kRefused,   ///< not sent: not publishable, such as larger than the broker takes
};

struct Publication {
  PublishResult result = PublishResult::kLinkDown;
  std::uint64_t id = 0;  ///< tells it from all others that were accepted; 0 unless accepted
};

/// MQTT 5 reason codes of acknowledgements that the agent tells apart.
constexpr int kNoMatchingSubscribers = 0x10;
constexpr int kFirstFailureCode = 0x80;

/// Hears of the link. Every call comes on the event thread.
class LinkListener {
 public:
  virtual ~LinkListener() {}

  /// The broker has accepted the connection and answered the subscription to requests.
  /// @param subscription_code its reason code; kFirstFailureCode and above: no request
  ///                          will arrive.
  virtual void OnLinkUp(int subscription_code) = 0;

  /// The connection is lost: what was not acknowledged by now never will be.
  virtual void OnLinkDown(const std::string& reason) = 0;

  /// The broker has answered for a message that Publish() accepted.
  /// @param reason_code as in the acknowledgement; kFirstFailureCode and above: not taken.
  virtual void OnAcknowledged(std::uint64_t publication, int reason_code) = 0;
};

/// An interface, so that tests can stand in for the broker. Used on the event thread.
class Link {
 public:
  virtual ~Link() {}

  /// Begins to connect, and keeps on for ever.
  /// @param listener not owned; outlives the link or Stop().
  virtual void Start(LinkListener* listener) = 0;

  /// Sends a message with QoS 1. Nothing that was published before a loss of the link is
  /// ever sent again.
  virtual Publication Publish(const OutboundMessage& message) = 0;

  /// Ends the present connection within a second, for this reason; another follows.
  virtual void Drop(const std::string& reason) = 0;

  /// Publishes a last message (none when it has no topic) if the link stands, and
  /// disconnects. Takes three seconds at the most; the listener is not called any more.
  /// @return false when the network thread still hangs, in the look-up of the broker's
  ///         name: the process is to be ended without destroying the link.
  virtual bool Stop(const OutboundMessage& last) = 0;
};

}  // namespace agent
