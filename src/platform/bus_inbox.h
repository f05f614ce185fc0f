// The way of a bus message from the NATS library's threads to the event service.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include "tarvex/dp_client.h"
#include "tarvex/event_service.h"

namespace tarvex {

/// One listened topic. Shared by the client, the library and the messages under way.
struct BusTopic {
  explicit BusTopic(const std::string& topic_name) : name(topic_name) {}

  const std::string name;
  std::atomic<bool> listened{true};  // false: what is under way is not delivered
};

class BusInbox;

/// A message of a topic, waiting in the event service.
class ArrivedMessage : public MessageData {
 public:
  ArrivedMessage(std::shared_ptr<BusInbox> inbox, std::shared_ptr<const BusTopic> topic,
                 const char* body, std::size_t length);
  ~ArrivedMessage() override;

  const std::shared_ptr<const BusTopic>& topic() const { return topic_; }
  const boost::shared_ptr<DpMessage>& message() const { return message_; }

 private:
  const std::shared_ptr<BusInbox> inbox_;
  const std::shared_ptr<const BusTopic> topic_;
  const boost::shared_ptr<DpMessage> message_;
};

/// Posts arriving messages to a handler, up to a bound of what waits undelivered: what
/// comes beyond it is dropped. Outlives the handler, whose end Close() announces.
class BusInbox : public std::enable_shared_from_this<BusInbox> {
 public:
  static constexpr unsigned int kArrivedMessageId = 1;  // of the posted messages
  static constexpr std::size_t kMostMessages = 4096;
  static constexpr std::size_t kMostBytes = std::size_t{64} << 20U;

  BusInbox(boost::shared_ptr<EventService> event_service, MessageHandler* handler)
      : event_service_(event_service), handler_(handler) {}

  /// Posts a message, or drops it. Any thread.
  void Accept(const std::shared_ptr<const BusTopic>& topic, const char* body, std::size_t length);

  /// After this nothing is posted any more, and nothing that was is delivered.
  void Close();

  /// How many messages were dropped so far.
  std::size_t dropped() const { return dropped_; }

 private:
  friend class ArrivedMessage;

  bool HasRoomFor(std::size_t length) const;
  void NoteDrop(const std::string& topic);
  void NoteRoom();

  std::mutex mutex_;  // guards the two below, also while a message is posted
  boost::shared_ptr<EventService> event_service_;
  MessageHandler* handler_;

  std::atomic<std::size_t> waiting_messages_{0};
  std::atomic<std::size_t> waiting_bytes_{0};
  std::atomic<std::size_t> dropped_{0};
  std::atomic<bool> dropping_{false};
};

}  // namespace tarvex
