#include "virtual_camera/ctl/ctl_client.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "json_text.h"
#include "platform/nats_handle.h"
#include "virtual_camera/control.h"
#include "virtual_camera/ctl/desk_server.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

namespace {

constexpr int64_t kAnswer_ms = 10000;
constexpr char kPassportQueue[] = "CONSOLE_PASSPORTS";
constexpr int64_t kPassport_ms = 2000;
constexpr int64_t kLook_ms = 200;

}  // namespace

/// Who answers requests.
struct CtlClient::Partner {
  std::string queue;
  int64_t timeout_ms;
  std::string who;
  std::string nobody;  // what to say where there is none
};

CtlClient::CtlClient() : link_(Connected(kBusServer)) {}

Json::Value CtlClient::Send(const Json::Value& command) {
  return Ask(
      {kControlQueue, kAnswer_ms, "the camera", "no camera listens on " + NameOf(kBusServer)},
      command);
}

Json::Value CtlClient::Passport(const std::string& id) {
  Json::Value question(Json::objectValue);
  if (!id.empty()) {
    question["id"] = id;
  }
  Json::Value answer =
      Ask({kPassportQueue, kPassport_ms, "the console",
           "no console is running on " + NameOf(kBusServer) + "; \"./dev run\" starts one"},
          question);
  if (id.empty() ? !answer["passports"].isArray() : !answer["passport"].isObject()) {
    throw std::runtime_error("the console's answer is not understood");
  }
  return answer;
}

Json::Value CtlClient::Ask(const Partner& partner, const Json::Value& question) {
  std::string text;
  Json::Json2String(question, text);
  natsMsg* raw_answer = nullptr;
  const natsStatus status =
      natsConnection_Request(&raw_answer, link_->get(), tarvex::BusSubject(partner.queue).c_str(),
                             text.data(), static_cast<int>(text.size()), partner.timeout_ms);
  const tarvex::NatsMessage message(raw_answer);
  if (status == NATS_NO_RESPONDERS) {
    throw std::runtime_error(partner.nobody);
  }
  if (status != NATS_OK) {
    throw std::runtime_error(partner.who + " does not answer: " + natsStatus_GetText(status));
  }
  Json::Value answer;
  const std::string bytes(natsMsg_GetData(message.get()),
                          static_cast<size_t>(natsMsg_GetDataLength(message.get())));
  if (!Json::String2Json(bytes, answer) || !answer.isObject() || !answer["ok"].isBool()) {
    throw std::runtime_error(partner.who + "'s answer is not understood");
  }
  if (!answer["ok"].asBool()) {
    throw std::runtime_error(answer["error"].isString() ? answer["error"].asString()
                                                        : partner.who + " refused");
  }
  return answer;
}

int64_t CtlClient::Record(const std::string& path, int64_t count,
                          const std::function<bool()>& is_to_stop) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
  }
  natsSubscription* created = nullptr;
  natsConnection_SubscribeSync(&created, link_->get(), tarvex::BusSubject(kResultTopic).c_str());
  const auto retire = [this](natsSubscription* ended) { link_->Retire(ended); };
  const std::unique_ptr<natsSubscription, decltype(retire)> subscription(created, retire);
  if (!subscription) {
    throw std::runtime_error("the bus does not let camera_ctl listen");
  }
  natsConnection_FlushTimeout(link_->get(), kLook_ms);
  (void)std::fprintf(stderr, "recording to %s\n", path.c_str());
  int64_t written = 0;
  while ((count == 0 || written < count) && !is_to_stop()) {
    natsMsg* raw_message = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&raw_message, subscription.get(), kLook_ms);
    const tarvex::NatsMessage message(raw_message);
    if (status == NATS_TIMEOUT || status == NATS_SLOW_CONSUMER) {
      continue;
    }
    if (status != NATS_OK) {
      throw std::runtime_error(std::string("listening failed: ") + natsStatus_GetText(status));
    }
    if (natsMsg_GetDataLength(message.get()) == static_cast<int>(kIvsRecordSize)) {
      // One record at a time: Ctrl-C leaves no part of one.
      file.write(natsMsg_GetData(message.get()), static_cast<std::streamsize>(kIvsRecordSize));
      file.flush();
      if (!file) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
      }
      ++written;
    } else {
      (void)std::fprintf(stderr, "left out a body of %d bytes\n",
                         natsMsg_GetDataLength(message.get()));
    }
  }
  return written;
}

}  // namespace virtual_camera
