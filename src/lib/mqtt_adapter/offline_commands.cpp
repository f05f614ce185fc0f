// Re-delivery of stored results: the cloud's command, the count notice, and what
// the host's confirmations set off.
//
// The loop has no state of its own. It is a posted message on its way, or one
// publication that waits for its confirmation.
#include <algorithm>
#include <cstdio>

#include "entry_guard.h"
#include "json_access.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {

bool MQTTAdapter::DoCmdSendOffline(const Json::Value& payload, const std::string& version,
                                   Json::Value& /*response*/) {
  if (!IsRequest(payload, "check_offline_record", __func__) || version != kVersion) {
    return false;
  }
  const Json::Value& body = Member(payload, "body");
  const Json::Value& enable_value = Member(body, "enable");
  const std::string enable = enable_value.isString() ? enable_value.asString() : std::string();
  if (enable != "push" && enable != "stop" && enable != "clear") {
    return true;  // Asks for nothing, and is accepted.
  }
  if (!m_offline_mgr_) {
    return false;
  }
  if (enable == "push") {
    const int max_count = Member(body, "max_count").asInt();
    const int min_id = Member(body, "min_id").asInt();
    if (max_count >= 0) {
      m_offline_mgr_->m_remain_count_ = static_cast<uint32_t>(max_count);
      if (max_count == 0) {
        m_offline_mgr_->m_offline_records_.clear();
      }
    }
    if (min_id > 0) {
      m_offline_mgr_->m_min_id_ = static_cast<uint32_t>(min_id);
    }
    PostToSelf(TCP_SESSION_SEND_OFFLINE_RECORD);
  } else if (enable == "stop") {
    m_offline_mgr_->m_remain_count_ = 0;
    m_offline_mgr_->m_offline_records_.clear();
  } else {
    m_offline_mgr_->ClearAllOfflineRecord();
  }
  return true;
}

int MQTTAdapter::OnNotifyOfflineCount() {
  if (!m_offline_mgr_) {
    return kStateOk;
  }
  Json::Value notice;
  notice["body"]["offline_record"] = m_offline_mgr_->GetCountOfflineRecords();
  printf("\033[31m SUB_OFFLINE_RECORD:%s \033[0m \n", notice.toStyledString().c_str());
  Publish("offline_record", notice, kTagOfflineRecord);
  return kStateOk;
}

void MQTTAdapter::OnMessagePublished(unsigned long long tag) try {
  ADAPTER_LOG(kLogInfo, "OnMessagePublished tag :%ld", static_cast<long>(tag));
  if (tag == kTagOfflineResult) {
    OnOfflineResultPublished();
  } else if (tag == kTagIvsResult) {
    OnLiveResultPublished();
  }
} catch (...) {
  LogCaughtException(__func__);
}

void MQTTAdapter::OnOfflineResultPublished() {
  IvsOfflineInfo* record = m_offline_mgr_ ? m_offline_mgr_->GetFirstOfflieRecord() : nullptr;
  if (record == nullptr) {
    return;
  }
  if (m_offline_mgr_->SetOfflinePushSuccess(record->result.plate.plate_id, true) == kStateOk) {
    PostToSelfDelayed(kOfflinePause_ms, TCP_SESSION_SEND_OFFLINE_RECORD, nullptr);
  }
}

void MQTTAdapter::OnLiveResultPublished() {
  if (m_result_list_.empty()) {
    return;
  }
  // A confirmation always means the newest result: the host hands them over one by
  // one (docs/delivery.md).
  const uint32_t plate_id = m_result_list_.back().plate.plate_id;
  if (m_offline_mgr_) {
    m_offline_mgr_->SetOfflinePushSuccess(plate_id, false);
  }
  const auto match = std::find_if(
      m_result_list_.begin(), m_result_list_.end(),
      [plate_id](const IVS_RESULT_PARAM& record) { return record.plate.plate_id == plate_id; });
  if (match != m_result_list_.end()) {
    m_result_list_.erase(match);
  }
}

}  // namespace qex
