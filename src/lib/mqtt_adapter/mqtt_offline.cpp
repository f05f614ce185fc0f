#include "mqtt_offline.h"

#include <algorithm>
#include <cstring>

#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "protocol.h"

#define OFFLINE_LOG(...) __sys_log(kLogInfo, "mqtt_offline", __func__, __LINE__, __VA_ARGS__)

namespace qex {
namespace {

/// Records fetched at a time, so that a reply stays small.
constexpr uint32_t kBatchSize = 5;

}  // namespace

int MqttOfflineMgr::Init(boost::shared_ptr<tarvex::EventService> event_service,
                         boost::shared_ptr<tarvex::DpClient> dp_client) {
  m_event_service_ = event_service;
  m_dp_client_ = dp_client;
  return kStateOk;
}

std::string MqttOfflineMgr::AskStore(const std::string& request) {
  std::string reply;
  if (m_dp_client_) {
    m_dp_client_->SendRequest(kQueueResults, 0, request.data(), request.size(), &reply,
                              kOfflineStoreTimeout_ms);
  }
  return reply;
}

int MqttOfflineMgr::GetCountOfflineRecords() {
  if (!m_offline_records_.empty()) {
    return static_cast<int>(m_offline_records_.size());
  }
  Json::Value request;
  request["type"] = "STP_GET_MQTT_OFFLINE_COUNT";
  Json::Value reply;
  if (!Json::String2Json(AskStore(StyledText(request)), reply)) {
    return 0;
  }
  const Json::Value& count = Member(Member(reply, "body"), "offline_count");
  if (!count.isInt()) {
    return 0;
  }
  OFFLINE_LOG("mqtt offline count %d", count.asInt());
  return count.asInt();
}

int MqttOfflineMgr::StartCheckOfflineRecords() {
  if (m_remain_count_ == 0) {
    return 0;
  }
  Json::Value request;
  request["type"] = "STP_SELECT_MQTT_OFFLINE_RECORD";
  request["body"]["count"] = std::min(m_remain_count_, kBatchSize);
  request["body"]["id"] = m_min_id_;
  const std::string reply = AskStore(StyledText(request));
  if (reply.size() % sizeof(IvsOfflineInfo) != 0) {
    return 0;
  }
  const size_t fetched = reply.size() / sizeof(IvsOfflineInfo);
  // Backwards, so that the first record of the reply is the next to be delivered. All of them or,
  // where memory runs out, none.
  std::list<IvsOfflineInfo> records;
  for (size_t i = fetched; i-- > 0;) {
    records.emplace_back();
    memcpy(&records.back(), reply.data() + i * sizeof(IvsOfflineInfo), sizeof(IvsOfflineInfo));
  }
  // Deliberately not clamped: more records than asked for wrap the count.
  m_remain_count_ -= static_cast<uint32_t>(fetched);
  OFFLINE_LOG("get %d mqtt offline record from db.", static_cast<int>(fetched));
  m_offline_records_.splice(m_offline_records_.end(), records);
  return static_cast<int>(fetched);
}

IvsOfflineInfo* MqttOfflineMgr::GetFirstOfflieRecord() {
  if (m_offline_records_.empty() && StartCheckOfflineRecords() < 1) {
    return nullptr;
  }
  return &m_offline_records_.back();
}

int MqttOfflineMgr::SetOfflinePushSuccess(uint32_t plate_id, bool is_offline) {
  Json::Value& kept = m_status_request_.body;
  if (kept.isNull()) {
    Json::Value request;  // whole before it is kept
    request["type"] = "STP_SET_MQTT_OFFLINE_STATUS";
    request["body"]["push_status"] = 0;
    request["body"]["plate_id"] = plate_id;
    kept.swap(request);
  }
  kept["body"]["plate_id"] = plate_id;
  AskStore(m_status_request_.Text());
  if (is_offline && !m_offline_records_.empty()) {
    // The current record's own id decides, whatever `plate_id` says.
    const uint32_t current = m_offline_records_.back().result.plate.plate_id;
    const auto match = std::find_if(m_offline_records_.begin(), m_offline_records_.end(),
                                    [current](const IvsOfflineInfo& record) {
                                      return record.result.plate.plate_id == current;
                                    });
    m_offline_records_.erase(match);
  }
  return kStateOk;
}

int MqttOfflineMgr::ClearAllOfflineRecord() {
  Json::Value request;
  request["type"] = "STP_CLEAR_MQTT_OFFLINE";
  AskStore(StyledText(request));
  return kStateOk;
}

}  // namespace qex
