// The broker that the host under test connects to: MQTT 3.1.1 and 5, as far as a host needs it, and
// as obedient as a test needs it.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace hostcheck {

/// Everything happens on the thread that runs the context.
class Broker {
 public:
  class Session;

  /// A message of the host that waits for its answer.
  struct Message {
    std::weak_ptr<Session> session;
    int connection = 0;  ///< number of the one that it came on
    int packet_id = 0;
    int qos = 0;
    std::string topic;
    std::string payload;
  };

  /// @param on_message called with each message, which is to be answered.
  Broker(boost::asio::io_context* context, const std::string& address,
         std::function<void(const Message&)> on_message);
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  int port() const { return acceptor_.local_endpoint().port(); }

  /// Acknowledges a message, or refuses it. What came on a link that was lost is forgotten.
  void Answer(const Message& message, bool is_refused);

  /// Sends a message to whoever has subscribed to anything.
  void Publish(const std::string& topic, const std::string& payload);

  /// Resets every connection.
  void Cut();

  /// Whether connections are accepted.
  void LetIn(bool does_let_in) { does_let_in_ = does_let_in; }

  /// Connections so far.
  int connections() const { return connections_; }

  /// Whether all who are connected know answers that refuse.
  bool CanRefuse() const;

 private:
  friend class Session;
  void Accept();

  boost::asio::ip::tcp::acceptor acceptor_;
  std::function<void(const Message&)> on_message_;
  std::set<std::shared_ptr<Session>> sessions_;
  bool does_let_in_ = true;
  int connections_ = 0;
};

}  // namespace hostcheck
