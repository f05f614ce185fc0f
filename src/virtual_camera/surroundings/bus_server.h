// The camera's end of the device bus: queues served, topics published.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <nats/nats.h>

#include "platform/asio_event_service.h"
#include "platform/nats_link.h"
#include "virtual_camera/surroundings/announcer.h"

namespace virtual_camera {

/// Messages are handed over to the camera's thread, and all else is called on it. The
/// connection is kept up by itself.
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

  /// Nobody serves the queue any more: who asks is told so at once.
  void StopServing(const std::string& queue);

  /// Hears a topic from now on, beside all others that do. The handler's `reply` is empty
  /// where the sender waits for no answer.
  void Listen(const std::string& topic, Handler handler);

  enum class Asked { kAnswered, kNobodyListens, kNoAnswer, kNotSent };

  /// Asks whoever listens to a topic, and waits for the first answer. This camera must not
  /// listen to it itself.
  Asked Ask(const std::string& topic, const std::string& question, int64_t timeout_ms);

  bool IsServing(const std::string& queue) const { return routes_.count(queue) != 0; }

  /// Waits a moment until the bus has taken in all of the above.
  bool Flush();

  bool Announce(const std::string& topic, const std::string& body) override;

  bool IsConnected() const { return link_ && link_->IsConnected(); }

  /// Requests that were dropped because too many waited for the camera's thread.
  int64_t dropped() const;

 private:
  struct Mailbox;
  struct Route;
  void Subscribe(const std::string& name, bool is_queue, Handler handler);
  static void OnMessage(natsConnection*, natsSubscription*, natsMsg* message, void* route);
  static void OnRouteEnds(void* route);

  // Shared with the routes, which live until the library lets go of them.
  std::shared_ptr<Mailbox> mailbox_;
  std::map<std::string, natsSubscription*> routes_;  // owned; by queue or topic
  std::shared_ptr<tarvex::NatsLink> link_;
};

}  // namespace virtual_camera
