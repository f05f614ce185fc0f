// The event loop that the host shares with its plug-ins.
#pragma once

#include <list>

#include <boost/shared_ptr.hpp>

#include "tarvex/message.h"

namespace tarvex {

/// Delivers messages on one thread, each after the one before has returned. Every
/// operation may be called from any thread.
class EventService {
 public:
  virtual ~EventService() {}

  /// Queues a message for delivery.
  /// @param data           shared until the message is delivered or cleared.
  /// @param time_sensitive true: may overtake messages that are not.
  virtual void Post(MessageHandler* handler, unsigned int id, boost::shared_ptr<MessageData> data,
                    bool time_sensitive) = 0;

  /// Queues a message for delivery after a delay.
  /// @param delay_ms milliseconds; zero or less: as soon as possible.
  virtual void PostDelayed(int delay_ms, MessageHandler* handler, unsigned int id,
                           boost::shared_ptr<MessageData> data) = 0;

  /// Drops the pending messages of a handler that carry an id, delayed ones too. They are
  /// released, their data included, when this returns: the code of its destructor may be
  /// unloaded right after.
  /// @param removed receives the dropped messages when it is not null; they are the caller's then.
  virtual void Clear(MessageHandler* handler, unsigned int id, std::list<Message>* removed) = 0;
};

}  // namespace tarvex
