// Messages that are posted through the event service.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>

namespace tarvex {

/// Base of whatever a message carries. Shared between the sender and the event
/// service, which lets go of it after delivery, before it delivers the next.
class MessageData : public boost::enable_shared_from_this<MessageData> {
 public:
  virtual ~MessageData() {}
};

class MessageHandler;

/// One message on its way to a handler.
struct Message {
  MessageHandler* handler;
  unsigned int message_id;
  boost::shared_ptr<MessageData> data;  ///< may be empty
};

/// Receives posted messages on the event service's thread. A handler clears its
/// messages from the event service before it dies.
class MessageHandler {
 public:
  virtual ~MessageHandler() {}

  /// @param msg lives for the call only.
  virtual void OnMessage(Message* msg) = 0;
};

}  // namespace tarvex
