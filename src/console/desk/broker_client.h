// The console's own connection to the broker: an ordinary client, beside the agent's.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <boost/asio/io_context.hpp>

#include "console/passports/passport_book.h"

struct mosquitto;

namespace console {

/// Subscribes to what all cameras below a root send, with a session that outlives a lost
/// connection. Reconnects by itself. A broker without MQTT 5 gets 3.1.1 for good. All but the
/// library's own thread is the context's.
class BrokerClient {
 public:
  struct Options {
    std::string host = "127.0.0.1";
    int port = 1884;
    std::string root = "cameras";
    std::string client_id;  ///< of the session
    std::string ca;         ///< file of the certificates to trust; empty: without TLS
    std::string cert;       ///< file of the client's certificate; empty: none
    std::string key;        ///< file of its key
  };

  /// Called on the context's thread.
  struct Handlers {
    std::function<void(bool is_connected)> on_state;
    std::function<void(const BrokerMessage& message)> on_message;  ///< messages and responses
    std::function<void(const std::string& sn, const std::string& status)> on_status;
  };

  /// Begins to connect. Throws std::runtime_error when there can be no client.
  BrokerClient(boost::asio::io_context& context, Options options, Handlers handlers);
  ~BrokerClient();
  BrokerClient(const BrokerClient&) = delete;
  BrokerClient& operator=(const BrokerClient&) = delete;

  bool IsConnected() const { return is_connected_; }

  /// Sends a request, QoS 1, with correlation data, by which its response is known.
  /// @return why it cannot be sent; empty where it is.
  std::string SendRequest(const std::string& topic, const std::string& payload,
                          const std::string& correlation);

 private:
  void Connect(int version);
  void OnConnack(int reason_code);
  void OnConnectionLost();
  void OnArrived(const BrokerMessage& message);
  void Post(std::function<void()> task);

  boost::asio::io_context& context_;
  const Options options_;
  const Handlers handlers_;
  mosquitto* client_ = nullptr;
  bool is_connected_ = false;
  bool has_correlation_ = false;  // MQTT 3.1.1 has none
};

}  // namespace console
