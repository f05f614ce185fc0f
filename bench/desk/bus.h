// The device bus, without anything in between: the library that the platform uses, and no more.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nats/nats.h>

class Bus {
 public:
  using Handler = std::function<void(const std::string& body, const char* reply_to)>;

  /// Throws std::runtime_error.
  explicit Bus(int port);
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  /// Sent at once. May be called from any thread.
  void Publish(const char* subject, const std::string& body);

  /// Empty without an answer within five seconds.
  std::optional<std::string> Request(const char* subject, const std::string& body);

  /// Has each message handled on a thread of the library. Returns when the server has noted it.
  void Listen(const char* subject, Handler handler);

 private:
  struct Listening;

  natsConnection* connection_ = nullptr;
  std::vector<Listening*> listenings_;
};
