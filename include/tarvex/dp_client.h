// Client of the device's internal message bus.
#pragma once

#include <cstddef>
#include <string>

#include <boost/shared_ptr.hpp>

#include "sigslot.h"
#include "tarvex/event_service.h"
#include "tarvex/socket_address.h"

namespace tarvex {

/// A message received from the bus.
struct DpMessage {
  std::string method;  ///< the topic
  std::string body;    ///< bytes: JSON text or a binary record, by topic
};

/// One connection to the bus. Used on the event service's thread.
class DpClient {
 public:
  /// Creates a client that delivers through `event_service`.
  /// @param name how the client calls itself on the bus.
  /// @return null when no client can be created.
  static boost::shared_ptr<DpClient> CreateDpClient(boost::shared_ptr<EventService> event_service,
                                                    const SocketAddress& address,
                                                    const std::string& name);

  virtual ~DpClient() {}

  /// Sends a request to a service queue and waits for the answer.
  /// @param type       name of the service queue.
  /// @param flags      0.
  /// @param data       the request, `length` bytes; copied.
  /// @param reply      receives the answer; untouched without one.
  /// @param timeout_ms how long to wait at the most.
  /// @return 1 or more: answered; 0 or less: failed or timed out.
  virtual int SendRequest(const std::string& type, int flags, const char* data, size_t length,
                          std::string* reply, int timeout_ms) = 0;

  /// Has the messages of a topic arrive on SignalDpMessage.
  /// @param flags 0.
  /// @return 0: listening.
  virtual int ListenMessage(const std::string& topic, int flags) = 0;

  /// Ends what ListenMessage began; a topic that is not listened to is ignored.
  virtual int RemoveListenMessage(const std::string& topic) = 0;

  /// Emitted on the event service's thread for each message of a listened topic.
  sigslot::signal2<boost::shared_ptr<DpClient>, boost::shared_ptr<DpMessage>,
                   sigslot::single_threaded>
      SignalDpMessage;
};

}  // namespace tarvex
