// Recognition results published as they come, and the last one on request.
#include <algorithm>
#include <cstring>
#include <utility>

#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {
namespace {

/// Holds a mutex for a scope, also when something is thrown.
class ScopedLock {
 public:
  explicit ScopedLock(pthread_mutex_t* mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_); }
  ~ScopedLock() { pthread_mutex_unlock(mutex_); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  pthread_mutex_t* mutex_;
};

}  // namespace

std::unique_ptr<StyledDocument> MQTTAdapter::TakePlatePayload() {
  if (!m_plate_payload_) {
    m_plate_payload_ = std::make_unique<StyledDocument>();
  }
  return std::move(m_plate_payload_);
}

void MQTTAdapter::OnIvsResultEvent(const IVS_RESULT_PARAM* record, int isoffline) {
  if (record == nullptr) {
    return;
  }
  ScopedLock lock(&m_result_mutex_);
  std::unique_ptr<StyledDocument> payload = TakePlatePayload();
  PackPlateResult(*record, isoffline, payload->Fill());
  // The format asks for a second text; there is none.
  ADAPTER_LOG(kLogDebug, "ivs_result:%s :%s", payload->Text().c_str(), "");
  Publish("ivs_result", payload->body, isoffline != 0 ? kTagOfflineResult : kTagIvsResult);
  m_plate_payload_ = std::move(payload);
}

void MQTTAdapter::SendIvsResultEvent(const IVS_RESULT_PARAM* record) {
  if (record == nullptr) {
    return;
  }
  ScopedLock lock(&m_result_mutex_);
  std::unique_ptr<StyledDocument> payload = TakePlatePayload();
  PackPlateResult(*record, 0, payload->Fill());
  Publish("get_last_result", payload->body, kTagGetLastResult);
  m_plate_payload_ = std::move(payload);
}

int MQTTAdapter::SendLastResult(const Json::Value& /*body*/) {
  std::string text;
  if (!Json::Json2String(KeptRequest("get_last_ivs"), text)) {
    return 0;
  }
  // What counts is the reply, not the result of the send.
  std::string reply;
  SendBusRequest(kQueueResults, text, kLastResultTimeout_ms, &reply);
  if (reply.empty()) {
    return 0;
  }
  // The length is not checked: a short reply is filled up with zeros.
  IVS_RESULT_PARAM record = {};
  memcpy(&record, reply.data(), std::min(reply.size(), sizeof(record)));
  SendIvsResultEvent(&record);
  return 1;
}

bool MQTTAdapter::DoCmdGetLastResult(const Json::Value& payload, const std::string& version,
                                     Json::Value& /*response*/) {
  if (!CheckPayloadIsValid(payload) || !TypeIs(payload, "get_last_result") || version != kVersion) {
    return false;
  }
  return SendLastResult(payload["body"]) != 0;
}

}  // namespace qex
