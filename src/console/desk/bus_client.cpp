#include "console/desk/bus_client.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>

#include "platform/log.h"
#include "platform/nats_handle.h"
#include "platform/trace.h"

namespace console {
namespace {

std::string BodyOf(natsMsg* message) {
  const int length = natsMsg_GetDataLength(message);
  return length > 0 ? std::string(natsMsg_GetData(message), static_cast<std::size_t>(length)) : "";
}

}  // namespace

/// Hands what arrives on the library's threads to the context, until the client's end: a
/// callback may come later than that.
struct BusClient::Mailbox {
  void Post(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (context != nullptr) {
      boost::asio::post(*context, std::move(task));
    }
  }

  std::mutex mutex;
  boost::asio::io_context* context = nullptr;
};

/// What the library keeps for a subscription until it has called back for the last time.
struct BusClient::Route {
  std::function<void(natsMsg* message)> on_message;
};

struct BusClient::Question {
  Question(boost::asio::io_context& context, OnAnswer answer)
      : on_answer(std::move(answer)), timer(context) {}

  OnAnswer on_answer;
  boost::asio::steady_timer timer;
};

BusClient::BusClient(boost::asio::io_context& context, std::function<void(bool)> on_state)
    : context_(context), mailbox_(std::make_shared<Mailbox>()) {
  mailbox_->context = &context;
  const auto announce = [mailbox = mailbox_, on_state](bool is_connected) {
    mailbox->Post([on_state, is_connected] { on_state(is_connected); });
  };
  link_ = tarvex::NatsLink::Connect(tarvex::BusAddress(), "console", announce);
  if (!link_) {
    throw std::runtime_error("there can be no connection to the bus");
  }
  if (link_->IsConnected()) {
    announce(true);
  }
  natsInbox* inbox = nullptr;
  if (natsInbox_Create(&inbox) != NATS_OK) {
    throw std::runtime_error("the bus library gives no subject for answers");
  }
  inbox_ = std::string(inbox) + ".";
  natsInbox_Destroy(inbox);
  Subscribe(inbox_ + "*", false, [this, mailbox = mailbox_](natsMsg* message) {
    const Asked outcome = natsMsg_IsNoResponders(message) ? Asked::kNobody : Asked::kAnswered;
    mailbox->Post([this, outcome, asked = std::string(natsMsg_GetSubject(message)),
                   answer = BodyOf(message)] { Answered(asked, outcome, answer); });
  });
}

BusClient::~BusClient() {
  {
    const std::lock_guard<std::mutex> lock(mailbox_->mutex);
    mailbox_->context = nullptr;
  }
  for (natsSubscription* subscription : subscriptions_) {
    link_->Retire(subscription);
  }
}

void BusClient::Listen(const std::string& subject, OnMessage on_message) {
  Subscribe(subject, false,
            [mailbox = mailbox_, on_message = std::move(on_message)](natsMsg* message) {
              mailbox->Post([on_message, body = BodyOf(message), at_us = tarvex::TraceClock_us()] {
                on_message(body, at_us);
              });
            });
}

void BusClient::ServeQueue(const std::string& subject, Serve serve) {
  Subscribe(subject, true, [this, mailbox = mailbox_, serve = std::move(serve)](natsMsg* message) {
    const char* reply_to = natsMsg_GetReply(message);
    if (reply_to == nullptr) {
      return;
    }
    mailbox->Post([this, serve, reply = std::string(reply_to), request = BodyOf(message)] {
      const std::string answer = serve(request);
      natsConnection_Publish(link_->get(), reply.c_str(), answer.data(),
                             static_cast<int>(answer.size()));
    });
  });
}

void BusClient::Subscribe(const std::string& subject, bool is_queue,
                          std::function<void(natsMsg*)> on_message) {
  auto route = std::make_unique<Route>(Route{std::move(on_message)});
  natsSubscription* subscription = nullptr;
  natsStatus status =
      is_queue ? natsConnection_QueueSubscribe(&subscription, link_->get(), subject.c_str(),
                                               "console", OnNatsMessage, route.get())
               : natsConnection_Subscribe(&subscription, link_->get(), subject.c_str(),
                                          OnNatsMessage, route.get());
  if (status == NATS_OK) {
    status = natsSubscription_SetOnCompleteCB(subscription, OnComplete, route.get());
  }
  if (status != NATS_OK) {
    throw std::runtime_error(subject + " cannot be heard: " + natsStatus_GetText(status));
  }
  (void)route.release();  // OnComplete deletes it
  subscriptions_.push_back(subscription);
}

void BusClient::Ask(const std::string& subject, const std::string& question,
                    std::chrono::milliseconds timeout, OnAnswer on_answer) {
  const std::string inbox = inbox_ + std::to_string(++last_question_);
  if (!link_->IsConnected() ||
      natsConnection_PublishRequest(link_->get(), subject.c_str(), inbox.c_str(), question.data(),
                                    static_cast<int>(question.size())) != NATS_OK) {
    boost::asio::post(context_, [on_answer] { on_answer(Asked::kNotConnected, ""); });
    return;
  }
  auto& asked = questions_[inbox];
  asked = std::make_unique<Question>(context_, std::move(on_answer));
  asked->timer.expires_after(timeout);
  asked->timer.async_wait([this, inbox](const boost::system::error_code& error) {
    if (!error) {
      Answered(inbox, Asked::kTimedOut, "");
    }
  });
}

void BusClient::Answered(const std::string& inbox, Asked outcome, const std::string& answer) {
  const auto found = questions_.find(inbox);
  if (found != questions_.end()) {
    const OnAnswer on_answer = std::move(found->second->on_answer);
    questions_.erase(found);
    on_answer(outcome, answer);
  }
}

void BusClient::OnNatsMessage(natsConnection*, natsSubscription*, natsMsg* received,
                              void* closure) {
  const tarvex::NatsMessage message(received);
  static_cast<Route*>(closure)->on_message(received);
}

void BusClient::OnComplete(void* closure) { delete static_cast<Route*>(closure); }

}  // namespace console
