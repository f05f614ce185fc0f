// The camera's connection to the device bus: queues served, topics published and heard.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <nats/nats.h>

#include "platform/asio_event_service.h"
#include "platform/bus_connection.h"
#include "virtual_camera/surroundings/announcer.h"

namespace virtual_camera {

/// Used on the camera's thread, on which messages are delivered too. Reconnects by itself.
class BusServer : public Announcer {
 public:
  /// Sends the bytes of the answer; to be called at most once, on the camera's thread.
  using Reply = std::function<void(const std::string& answer)>;
  using Handler = std::function<void(const std::string& request, Reply reply)>;

  /// Begins to connect. Throws std::runtime_error when there can be no connection.
  /// @param event_service the camera's; must outlive this.
  /// @param on_state      called on the camera's thread when the connection is there or
  ///                      lost, beginning with the first.
  BusServer(tarvex::AsioEventService& event_service, std::function<void(bool)> on_state);
  ~BusServer() override;

  BusServer(const BusServer&) = delete;
  BusServer& operator=(const BusServer&) = delete;

  /// Serves a queue from now on. The bus knows it when Flush has returned true.
  void Serve(const std::string& queue, Handler handler);

  /// Ends Serve or Listen. A request to a queue that nobody serves fails at once.
  void StopServing(const std::string& queue);

  /// Hears a topic from now on, as do all others that listen to it. The handler's `reply` is
  /// empty where the sender waits for no answer.
  void Listen(const std::string& topic, Handler handler);

  enum class Asked { kAnswered, kNobodyListens, kNoAnswer, kNotSent };

  /// Asks whoever listens to a topic, and waits for the first answer. This camera must not
  /// listen to it itself.
  Asked Ask(const std::string& topic, const std::string& question, int64_t timeout_ms);

  bool IsServing(const std::string& queue) const { return routes_.count(queue) != 0; }

  /// Waits up to a second.
  /// @return whether the bus knows all that was served, ended and announced before.
  bool Flush();

  bool Announce(const std::string& topic, const std::string& body) override;

  bool IsConnected() const { return connection_ && connection_->link().IsConnected(); }

  /// Requests that were dropped because too many waited for the camera's thread.
  int64_t dropped() const;

 private:
  struct Mailbox;
  void Subscribe(const std::string& name, bool is_queue, Handler handler);
  void Accept(natsMsg* message, bool is_queue, const std::shared_ptr<Handler>& handler);

  tarvex::AsioEventService& event_service_;
  const std::shared_ptr<Mailbox> mailbox_;
  std::map<std::string, unsigned> routes_;  // subscriptions by queue or topic
  std::shared_ptr<tarvex::BusConnection> connection_;
};

}  // namespace virtual_camera
