#include "platform/pending_messages.h"

#include <iterator>
#include <utility>

namespace tarvex {
namespace {

bool IsFor(const Message& message, const MessageHandler* handler, unsigned int id) {
  return message.handler == handler && message.message_id == id;
}

void MoveMatching(std::list<Message>& from, const MessageHandler* handler, unsigned int id,
                  std::list<Message>& to) {
  for (auto message = from.begin(); message != from.end();) {
    const auto next = std::next(message);
    if (IsFor(*message, handler, id)) {
      to.splice(to.end(), from, message);
    }
    message = next;
  }
}

}  // namespace

void PendingMessages::Add(Message message, bool time_sensitive) {
  (time_sensitive ? urgent_ : ordinary_).push_back(std::move(message));
}

void PendingMessages::AddDelayed(Message message, TimePoint due) {
  delayed_.emplace(due, std::move(message));
}

std::optional<PendingMessages::TimePoint> PendingMessages::NextDue() const {
  if (delayed_.empty()) {
    return std::nullopt;
  }
  return delayed_.begin()->first;
}

void PendingMessages::TakeDue(TimePoint now) {
  while (!delayed_.empty() && delayed_.begin()->first <= now) {
    ordinary_.push_back(std::move(delayed_.begin()->second));
    delayed_.erase(delayed_.begin());
  }
}

bool PendingMessages::HasNext() const { return !urgent_.empty() || !ordinary_.empty(); }

std::optional<Message> PendingMessages::TakeNext() {
  std::list<Message>& line = urgent_.empty() ? ordinary_ : urgent_;
  if (line.empty()) {
    return std::nullopt;
  }
  std::optional<Message> next = std::move(line.front());
  line.pop_front();
  return next;
}

std::list<Message> PendingMessages::Remove(const MessageHandler* handler, unsigned int id) {
  std::list<Message> removed;
  MoveMatching(urgent_, handler, id, removed);
  MoveMatching(ordinary_, handler, id, removed);
  for (auto entry = delayed_.begin(); entry != delayed_.end();) {
    if (IsFor(entry->second, handler, id)) {
      removed.push_back(std::move(entry->second));
      entry = delayed_.erase(entry);
    } else {
      ++entry;
    }
  }
  return removed;
}

std::list<Message> PendingMessages::RemoveAll() {
  std::list<Message> removed = std::move(urgent_);
  urgent_.clear();
  removed.splice(removed.end(), ordinary_);
  for (auto& [due, message] : delayed_) {
    removed.push_back(std::move(message));
  }
  delayed_.clear();
  return removed;
}

}  // namespace tarvex
