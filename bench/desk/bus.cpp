#include "bus.h"

#include <stdexcept>
#include <utility>

namespace {

constexpr std::int64_t kTimeout_ms = 5000;

void Require(natsStatus status, const char* what) {
  if (status != NATS_OK) {
    throw std::runtime_error(std::string("bus, ") + what + ": " + natsStatus_GetText(status));
  }
}

}  // namespace

struct Bus::Listening {
  Handler handler;
  natsSubscription* subscription = nullptr;
};

Bus::Bus(int port) {
  natsOptions* options = nullptr;
  Require(natsOptions_Create(&options), "options");
  const std::string url = "nats://127.0.0.1:" + std::to_string(port);
  natsOptions_SetURL(options, url.c_str());
  natsOptions_SetSendAsap(options, true);
  natsOptions_SetAllowReconnect(options, false);
  const natsStatus status = natsConnection_Connect(&connection_, options);
  natsOptions_Destroy(options);
  Require(status, "connection");
}

Bus::~Bus() {
  natsConnection_Close(connection_);
  for (Listening* const listening : listenings_) {
    natsSubscription_Destroy(listening->subscription);
  }
  natsConnection_Destroy(connection_);
  // The library's threads end now, and with them the calls of the handlers.
  nats_CloseAndWait(0);
  for (const Listening* const listening : listenings_) {
    delete listening;
  }
}

void Bus::Publish(const char* subject, const std::string& body) {
  Require(natsConnection_Publish(connection_, subject, body.data(), static_cast<int>(body.size())),
          "publication");
}

std::optional<std::string> Bus::Request(const char* subject, const std::string& body) {
  natsMsg* answer = nullptr;
  if (natsConnection_Request(&answer, connection_, subject, body.data(),
                             static_cast<int>(body.size()), kTimeout_ms) != NATS_OK) {
    return std::nullopt;
  }
  std::string text(natsMsg_GetData(answer),
                   static_cast<std::size_t>(natsMsg_GetDataLength(answer)));
  natsMsg_Destroy(answer);
  return text;
}

void Bus::Listen(const char* subject, Handler handler) {
  auto* const listening = new Listening{std::move(handler)};
  listenings_.push_back(listening);
  Require(natsConnection_Subscribe(
              &listening->subscription, connection_, subject,
              [](natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
                static_cast<Listening*>(closure)->handler(
                    std::string(natsMsg_GetData(message),
                                static_cast<std::size_t>(natsMsg_GetDataLength(message))),
                    natsMsg_GetReply(message));
                natsMsg_Destroy(message);
              },
              listening),
          "subscription");
  Require(natsConnection_Flush(connection_), "flush");
}
