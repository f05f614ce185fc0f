// Reading and writing a NATS connection on the thread of an event service.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <nats/nats.h>
#include <boost/asio/posix/stream_descriptor.hpp>

#include "platform/nats_handle.h"
#include "platform/socket_service.h"

namespace tarvex {

/// The library opens the socket, and opens it again on threads of its own; in between all of
/// it is done here. Used on the service's thread, where nothing else is said.
class NatsLoop : public std::enable_shared_from_this<NatsLoop> {
 public:
  using Taker = std::function<void(natsMsg* message)>;

  /// @param service must outlive this.
  explicit NatsLoop(SocketService& service) : service_(service) {}

  /// Has the connections of these options be driven by this, which the library's last
  /// callback must not outlive.
  natsStatus Configure(natsOptions* options);

  /// Begins with the connection that was made of the options.
  void Begin(natsConnection* connection);

  /// Ends with it; it is closed, and its subscriptions may still be there.
  void End();

  /// @param queue null: every listener of the subject gets each message.
  /// @param take  gets each message as it arrives; must not use the loop.
  natsStatus Subscribe(natsSubscription** subscription, const char* subject, const char* queue,
                       Taker take);
  void Unsubscribe(natsSubscription* subscription);

  /// Writes what was published, as far as the socket takes it now; the rest follows.
  void Write();

  /// @param take gets the answer where there is one.
  natsStatus Request(const char* subject, const char* data, int length, std::int64_t timeout_ms,
                     const Taker& take);

  /// Waits until the server has taken in what was sent before.
  natsStatus Flush(std::int64_t timeout_ms);

 private:
  // The library's callbacks, on any thread. `self` is a std::shared_ptr<NatsLoop>*, but the
  // first time in OnAttach.
  static natsStatus OnAttach(void** self, void* loop, natsConnection*, natsSock socket);
  static natsStatus OnRead(void* self, bool add);
  static natsStatus OnWrite(void* self, bool add);
  static natsStatus OnDetach(void* self);
  natsStatus Watch(natsSock socket);

  void WatchFresh();
  void AwaitReading();
  bool Read();
  void HandOut();
  template <class Take>
  bool Next(natsSubscription* subscription, Take take);
  void Discard(NatsMessage message);
  natsStatus AwaitAnswer(natsStatus sent, const std::string& subject, std::int64_t timeout_ms,
                         const Taker& take);
  natsStatus NextInbox(std::string* subject);

  using Socket = boost::asio::posix::stream_descriptor;

  SocketService& service_;
  std::atomic<bool> is_attached_{false};  // the library's socket is to be read and written here
  std::atomic<unsigned> losses_{0};       // of connections
  std::atomic<bool> wants_to_write_{false};
  std::atomic<bool> writes_anyway_{false};  // soon: no need to be told to
  std::mutex mutex_;                        // guards the next
  std::shared_ptr<Socket> fresh_;           // attached, not watched yet
  natsConnection* connection_ = nullptr;    // the link's
  std::shared_ptr<Socket> socket_;          // the library's, as a descriptor of its own
  bool awaits_writing_ = false;
  std::vector<std::pair<natsSubscription*, Taker>> takers_;
  std::string inbox_;
  NatsSubscription answers_;  // to requests
  std::uint64_t last_request_ = 0;
  std::string awaited_;  // subject of the answer that is waited for
  NatsMessage answer_;
  bool is_unserved_ = false;       // by anybody: what was asked
  std::vector<NatsMessage> used_;  // to be freed
  std::size_t used_bytes_ = 0;
};

}  // namespace tarvex
