// The messages that wait in the event service, without any thread or real clock.
#pragma once

#include <chrono>
#include <list>
#include <map>
#include <optional>

#include "tarvex/message.h"

namespace tarvex {

/// Two stages: delayed messages wait by due time, then in line with the others. The
/// clock is what the caller says it is. Not thread-safe: the event service locks.
class PendingMessages {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Puts a message in line; a time-sensitive one before all that are not.
  void Add(Message message, bool time_sensitive);

  /// Keeps a message until `due`; equal times keep the order of adding.
  void AddDelayed(Message message, TimePoint due);

  /// When the next delayed message is due; empty without one.
  std::optional<TimePoint> NextDue() const;

  /// Puts what is due at `now` in line, by due time.
  void TakeDue(TimePoint now);

  /// Whether a message is in line.
  bool HasNext() const;

  /// Takes the message at the head of the line; empty without one.
  std::optional<Message> TakeNext();

  /// Takes out every message of that handler and id, delayed ones last.
  std::list<Message> Remove(const MessageHandler* handler, unsigned int id);

  /// Takes out everything.
  std::list<Message> RemoveAll();

 private:
  std::list<Message> urgent_;
  std::list<Message> ordinary_;
  std::multimap<TimePoint, Message> delayed_;
};

}  // namespace tarvex
