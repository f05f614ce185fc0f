#include "platform/nats_loop.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>

#include <boost/asio/post.hpp>

namespace tarvex {
namespace {

constexpr std::size_t kMostUsed = 64;
constexpr std::size_t kMostUsed_bytes = std::size_t{256} << 10U;

using boost::system::error_code;

std::shared_ptr<NatsLoop>& Loop(void* self) {
  return *static_cast<std::shared_ptr<NatsLoop>*>(self);
}

}  // namespace

natsStatus NatsLoop::Configure(natsOptions* options) {
  return natsOptions_SetEventLoop(options, this, OnAttach, OnRead, OnWrite, OnDetach);
}

natsStatus NatsLoop::OnAttach(void** self, void* loop, natsConnection*, natsSock socket) {
  try {
    if (*self == nullptr) {
      *self = new std::shared_ptr<NatsLoop>(static_cast<NatsLoop*>(loop)->shared_from_this());
    }
    return Loop(*self)->Watch(socket);
  } catch (const std::exception&) {
    return NATS_NO_MEMORY;
  }
}

natsStatus NatsLoop::Watch(natsSock socket) {
  // A descriptor of its own: the library may close its one while this waits for it.
  auto fresh = std::make_shared<Socket>(service_.context(), dup(socket));
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    fresh_ = std::move(fresh);
  }
  is_attached_ = true;
  boost::asio::post(service_.context(), [self = shared_from_this()] { self->WatchFresh(); });
  return NATS_OK;
}

natsStatus NatsLoop::OnRead(void* self, bool add) {
  if (add) {
    return NATS_OK;
  }
  const std::shared_ptr<NatsLoop>& loop = Loop(self);
  loop->is_attached_ = false;
  ++loop->losses_;
  try {
    // Ends the wait for an answer.
    boost::asio::post(loop->service_.context(), [loop] { loop->socket_.reset(); });
  } catch (const std::exception&) {
    return NATS_NO_MEMORY;
  }
  return NATS_OK;
}

natsStatus NatsLoop::OnWrite(void* self, bool add) {
  const std::shared_ptr<NatsLoop>& loop = Loop(self);
  loop->wants_to_write_ = add;
  if (add && !loop->writes_anyway_) {
    try {
      boost::asio::post(loop->service_.context(), [loop] { loop->Write(); });
    } catch (const std::exception&) {
      return NATS_NO_MEMORY;
    }
  }
  return NATS_OK;
}

natsStatus NatsLoop::OnDetach(void* self) {
  const std::unique_ptr<std::shared_ptr<NatsLoop>> owner(&Loop(self));
  (*owner)->is_attached_ = false;
  return NATS_OK;
}

void NatsLoop::Begin(natsConnection* connection) {
  connection_ = connection;
  WatchFresh();
}

void NatsLoop::End() {
  connection_ = nullptr;
  socket_.reset();
  takers_.clear();
  answers_.reset();
  used_.clear();
}

void NatsLoop::WatchFresh() {
  if (connection_ == nullptr) {
    return;  // before Begin() or after End()
  }
  std::shared_ptr<Socket> fresh;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    fresh.swap(fresh_);
  }
  if (fresh) {
    socket_ = std::move(fresh);
    awaits_writing_ = false;
    AwaitReading();
    Write();
  }
}

void NatsLoop::AwaitReading() {
  socket_->async_wait(Socket::wait_read,
                      [self = shared_from_this(), socket = socket_](const error_code& error) {
                        if (!error && socket == self->socket_ && self->Read()) {
                          self->AwaitReading();
                        }
                      });
}

bool NatsLoop::Read() {
  if (connection_ == nullptr || !is_attached_) {
    return false;
  }
  natsConnection_ProcessReadEvent(connection_);
  HandOut();
  return is_attached_;
}

void NatsLoop::HandOut() {
  while (answers_ && Next(answers_.get(), [this](NatsMessage message) {
           if (awaited_ == natsMsg_GetSubject(message.get())) {
             answer_ = std::move(message);
           } else {
             Discard(std::move(message));
           }
         })) {
  }
  for (const auto& [subscription, take] : takers_) {
    while (Next(subscription, [this, &take = take](NatsMessage message) {
      take(message.get());
      Discard(std::move(message));
    })) {
    }
  }
}

/// Takes one message of a subscription.
/// @return whether there was one.
template <class Take>
bool NatsLoop::Next(natsSubscription* subscription, Take take) {
  std::uint64_t waiting = 0;
  if (natsSubscription_QueuedMsgs(subscription, &waiting) != NATS_OK || waiting == 0) {
    return false;
  }
  natsMsg* received = nullptr;
  switch (natsSubscription_NextMsg(&received, subscription, 0)) {
    case NATS_OK:
      take(NatsMessage(received));
      return true;
    case NATS_NO_RESPONDERS:  // the library keeps the message, which would tell nothing more
      is_unserved_ = true;
      return true;
    default:
      return false;
  }
}

/// The library has a thread of its own free each message, and wakes it for that: so many are
/// freed at a time.
void NatsLoop::Discard(NatsMessage message) {
  used_bytes_ += static_cast<std::size_t>(natsMsg_GetDataLength(message.get()));
  used_.push_back(std::move(message));
  if (used_.size() >= kMostUsed || used_bytes_ >= kMostUsed_bytes) {
    used_.clear();
    used_bytes_ = 0;
  }
}

void NatsLoop::Write() {
  if (connection_ == nullptr || !wants_to_write_) {
    return;
  }
  natsConnection_ProcessWriteEvent(connection_);
  if (wants_to_write_ && !awaits_writing_ && socket_) {
    awaits_writing_ = true;
    socket_->async_wait(Socket::wait_write,
                        [self = shared_from_this(), socket = socket_](const error_code& error) {
                          if (!error && socket == self->socket_) {
                            self->awaits_writing_ = false;
                            self->Write();
                          }
                        });
  }
}

natsStatus NatsLoop::Subscribe(natsSubscription** subscription, const char* subject,
                               const char* queue, Taker take) {
  const natsStatus status =
      queue != nullptr
          ? natsConnection_QueueSubscribeSync(subscription, connection_, subject, queue)
          : natsConnection_SubscribeSync(subscription, connection_, subject);
  if (status == NATS_OK) {
    takers_.emplace_back(*subscription, std::move(take));
    Write();
  }
  return status;
}

void NatsLoop::Unsubscribe(natsSubscription* subscription) {
  takers_.erase(
      std::remove_if(takers_.begin(), takers_.end(),
                     [subscription](const auto& taker) { return taker.first == subscription; }),
      takers_.end());
  natsSubscription_Destroy(subscription);
  Write();
}

natsStatus NatsLoop::Request(const char* subject, const char* data, int length,
                             std::int64_t timeout_ms, const Taker& take) {
  std::string reply;
  natsStatus status = NextInbox(&reply);
  if (status == NATS_OK) {
    writes_anyway_ = true;
    status = natsConnection_PublishRequest(connection_, subject, reply.c_str(), data, length);
    writes_anyway_ = false;
  }
  return AwaitAnswer(status, reply, timeout_ms, take);
}

/// A message to itself comes back after everything before it has arrived.
natsStatus NatsLoop::Flush(std::int64_t timeout_ms) {
  std::string subject;
  natsStatus status = NextInbox(&subject);
  if (status == NATS_OK) {
    status = natsConnection_Publish(connection_, subject.c_str(), nullptr, 0);
  }
  return AwaitAnswer(status, subject, timeout_ms, [](natsMsg*) {});
}

natsStatus NatsLoop::AwaitAnswer(natsStatus sent, const std::string& subject,
                                 std::int64_t timeout_ms, const Taker& take) {
  const unsigned losses = losses_;
  Write();
  if (sent != NATS_OK) {
    return sent;
  }
  awaited_ = subject;
  is_unserved_ = false;
  service_.WaitUntil(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms),
                     [&] { return answer_ != nullptr || is_unserved_ || losses_ != losses; });
  awaited_.clear();
  if (is_unserved_) {
    return NATS_NO_RESPONDERS;
  }
  NatsMessage answer = std::move(answer_);
  if (!answer) {
    // That nobody serves a subject is told without its name: a late word of this request
    // must not end the next.
    answers_.reset();
    Write();
    return losses_ != losses ? NATS_CONNECTION_DISCONNECTED : NATS_TIMEOUT;
  }
  take(answer.get());
  Discard(std::move(answer));
  return NATS_OK;
}

natsStatus NatsLoop::NextInbox(std::string* subject) {
  if (!answers_) {
    natsInbox* created = nullptr;
    natsStatus status = natsInbox_Create(&created);
    if (status != NATS_OK) {
      return status;
    }
    inbox_ = std::string(created) + ".";
    natsInbox_Destroy(created);
    natsSubscription* subscription = nullptr;
    status = natsConnection_SubscribeSync(&subscription, connection_, (inbox_ + "*").c_str());
    answers_.reset(subscription);
    if (status != NATS_OK) {
      return status;
    }
  }
  *subject = inbox_ + std::to_string(++last_request_);
  return NATS_OK;
}

}  // namespace tarvex
