// An ordinary MQTT client, as a cloud integrator would use one: not the agent's code.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct mosquitto;

/// How a client reaches a broker of this machine.
struct BrokerAccess {
  BrokerAccess(int loopback_port) : port(loopback_port) {}  // NOLINT: mostly that is all

  int port;
  bool speaks_mqtt_5 = true;  ///< else 3.1.1, which has none of the Extras but `retain`
  std::string username;       ///< empty: none
  std::string password;
};

class MqttClient {
 public:
  struct Message {
    std::string topic;
    std::string payload;
    std::string correlation;  ///< MQTT 5 correlation data
    bool retained;
  };

  /// Looks at each message that a client keeps, on that client's thread. To be set before
  /// there is a client; empty for nothing.
  static std::function<void(const Message&)> inspector;

  /// Connects, subscribes to `filter`, and waits for both. It reconnects and subscribes
  /// again by itself. Throws std::runtime_error.
  /// @param on_message called on the client's thread for each message; may be empty.
  MqttClient(const BrokerAccess& broker, const std::string& filter,
             std::function<void(const Message&)> on_message = {});
  ~MqttClient();

  MqttClient(const MqttClient&) = delete;
  MqttClient& operator=(const MqttClient&) = delete;

  struct Extras {
    std::string response_topic;
    std::string correlation;
    int expiry_s = 0;  ///< of the message; 0: none
    bool retain = false;
  };
  /// QoS 1. Throws std::runtime_error when not connected.
  void Publish(const std::string& topic, const std::string& payload, const Extras& extras);
  void Publish(const std::string& topic, const std::string& payload) {
    Publish(topic, payload, Extras());
  }

  /// Publishes a message with QoS 1. @return how long the broker took to acknowledge it.
  /// Throws std::runtime_error.
  std::chrono::microseconds RoundTrip(const std::string& topic, const std::string& payload);

  /// Whether the subscription stands.
  bool IsSubscribed() const;

  /// Waits for a message that is wanted and takes it out, together with all before it.
  std::optional<Message> Await(
      const std::function<bool(const Message&)>& is_wanted,
      std::chrono::milliseconds deadline = std::chrono::milliseconds(20000));

  /// The same, leaving those before it.
  std::optional<Message> Pick(
      const std::function<bool(const Message&)>& is_wanted,
      std::chrono::milliseconds deadline = std::chrono::milliseconds(20000));

  /// Awaits the first message of a topic.
  std::optional<Message> AwaitTopic(const std::string& topic);

  /// Forgets what has arrived.
  void Forget();

 private:
  struct Library;
  std::optional<Message> Take(const std::function<bool(const Message&)>& is_wanted,
                              std::chrono::milliseconds deadline, bool with_all_before);
  static void OnConnect(mosquitto* client, void* self, int code);
  static void OnSubscribed(mosquitto* client, void* self, int id, int count, const int* granted);
  static void OnDisconnect(mosquitto* client, void* self, int code);
  static void OnPublished(mosquitto* client, void* self, int id);
  void Arrived(const Message& message);

  std::string filter_;
  std::function<void(const Message&)> on_message_;
  mutable std::mutex mutex_;
  std::vector<Message> messages_;
  bool is_subscribed_ = false;
  std::condition_variable published_;
  int last_published_ = 0;  ///< message id
  mosquitto* client_ = nullptr;
};
