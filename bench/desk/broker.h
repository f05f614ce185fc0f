// A client of the broker that one thread drives: what it measures has no change of thread in it.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

struct mosquitto;

class Broker {
 public:
  using Handler = std::function<void(std::string_view topic, std::string_view payload)>;

  /// Connects, and subscribes to the filter, where there is one, with that quality of service.
  /// Throws std::runtime_error.
  Broker(int port, const std::string& filter, int qos, Handler handler);
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  /// QoS 1.
  /// @return the number of the message.
  int Publish(const std::string& topic, const std::string& payload);

  /// Drives the connection until a condition holds; the handler is called meanwhile. Throws
  /// std::runtime_error when it does not within ten seconds.
  template <class Condition>
  void DriveUntil(Condition condition) {
    const auto deadline = Deadline();
    while (!condition()) {
      DriveOnce(deadline);
    }
  }

  /// Publishes, and waits for the broker's acknowledgement.
  void PublishAcknowledged(const std::string& topic, const std::string& payload);

  /// Has a thread of its own drive the connection from now on, until the end.
  void DriveInBackground();

 private:
  static std::int64_t Deadline();
  void DriveOnce(std::int64_t deadline);

  Handler handler_;
  mosquitto* client_ = nullptr;
  bool is_connected_ = false;
  bool is_subscribed_ = false;
  int acknowledged_ = 0;  // the latest
  std::atomic<bool> is_to_end_{false};
  std::thread thread_;
};
