#include "platform/bus_inbox.h"

#include <utility>

#include <boost/make_shared.hpp>

#include "platform/log.h"

namespace tarvex {

ArrivedMessage::ArrivedMessage(std::shared_ptr<BusInbox> inbox,
                               std::shared_ptr<const BusTopic> topic, const char* body,
                               std::size_t length)
    : inbox_(std::move(inbox)),
      topic_(std::move(topic)),
      message_(boost::make_shared<DpMessage>(DpMessage{topic_->name, std::string(body, length)})) {
  ++inbox_->waiting_messages_;
  inbox_->waiting_bytes_ += message_->body.size();
}

ArrivedMessage::~ArrivedMessage() {
  --inbox_->waiting_messages_;
  inbox_->waiting_bytes_ -= message_->body.size();
  inbox_->NoteRoom();
}

void BusInbox::Accept(const std::shared_ptr<const BusTopic>& topic, const char* body,
                      std::size_t length) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (handler_ == nullptr || !topic->listened) {
    return;
  }
  if (!HasRoomFor(length)) {
    NoteDrop(topic->name);
    return;
  }
  event_service_->Post(handler_, kArrivedMessageId,
                       boost::make_shared<ArrivedMessage>(shared_from_this(), topic, body, length),
                       false);
}

void BusInbox::Close() {
  boost::shared_ptr<EventService> event_service;
  MessageHandler* handler = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    event_service.swap(event_service_);
    std::swap(handler, handler_);
  }
  if (handler != nullptr) {
    event_service->Clear(handler, kArrivedMessageId, nullptr);
  }
}

bool BusInbox::HasRoomFor(std::size_t length) const {
  return waiting_messages_ < kMostMessages && waiting_bytes_ + length <= kMostBytes;
}

void BusInbox::NoteDrop(const std::string& topic) {
  ++dropped_;
  if (!dropping_.exchange(true)) {
    SYS_LOG(kLogWarning, "bus messages come faster than they are taken: dropping, first of %s",
            topic.c_str());
  }
}

/// An episode of dropping is over when half of the room is free again.
void BusInbox::NoteRoom() {
  if (dropping_ && waiting_messages_ <= kMostMessages / 2 && waiting_bytes_ <= kMostBytes / 2 &&
      dropping_.exchange(false)) {
    SYS_LOG(kLogWarning, "bus messages are taken again; %zu dropped so far", dropped_.load());
  }
}

}  // namespace tarvex
