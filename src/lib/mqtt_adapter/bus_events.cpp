// Where bus messages and posted messages go.
#include <cstring>
#include <type_traits>

#include "entry_guard.h"
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {

const MQTTAdapter::TopicRow MQTTAdapter::kTopics[] = {
    {kTopicIvsResult, &MQTTAdapter::OnRecognitionResult},
    {kTopicExternalTrigger, &MQTTAdapter::OnGpioEvent},
    {kTopicSerialRead, &MQTTAdapter::GetSerialPushData},
    {kTopicIpChanged, &MQTTAdapter::OnIpChange},
    {kTopicNameChanged, &MQTTAdapter::OnNameChange},
    {kTopicLanectrlResult, &MQTTAdapter::OnLanectrlResult},
};

const MQTTAdapter::PostedRow MQTTAdapter::kPosted[] = {
    {TCP_SESSION_SEND_IVS_RESULT, &MQTTAdapter::OnSendIvsResult},
    {TCP_SESSION_SEND_OFFLINE_RECORD, &MQTTAdapter::OnSendOfflineRecord},
    {TCP_SESSION_NOTIFY_OFFLINE_COUNT, &MQTTAdapter::OnSendOfflineCount},
    {TCP_SESSION_STOP_CLOUDCTRL, &MQTTAdapter::OnStopCloudCtrl},
};

void MQTTAdapter::OnDpMessage(boost::shared_ptr<tarvex::DpClient> /*client*/,
                              boost::shared_ptr<tarvex::DpMessage> msg) try {
  static_assert(std::extent<decltype(kTopics)>::value == 6, "every topic has its row");
  if (!msg) {
    return;
  }
  // The misspelling belongs to the text.
  ADAPTER_LOG(kLogDebug, " OnDpMessage rcv msg mothod:%s ", msg->method.c_str());
  for (const TopicRow& row : kTopics) {
    if (msg->method == row.topic) {
      (this->*row.handler)(msg->body);
      return;
    }
  }
} catch (...) {
  LogCaughtException(__func__);
}

void MQTTAdapter::OnMessage(tarvex::Message* msg) try {
  static_assert(std::extent<decltype(kPosted)>::value == 4,
                "every message that is acted on has its row");
  if (msg == nullptr) {
    return;
  }
  for (const PostedRow& row : kPosted) {
    if (msg->message_id == row.id) {
      (this->*row.handler)(*msg);
      return;
    }
  }
} catch (...) {
  LogCaughtException(__func__);
}

void MQTTAdapter::OnRecognitionResult(const std::string& body) {
  IVS_RESULT_PARAM record;
  if (body.size() != sizeof(record)) {
    ADAPTER_LOG_AS("OnDpMessage", kLogError, "The size is not equal sizeof(IVS_RESULT_PARAM)");
    return;
  }
  memcpy(&record, body.data(), sizeof(record));
  // A full queue drops the result without a word, and the newest queued one is
  // published once more: that is how the cloud expects it.
  if (m_result_list_.size() < kMaxPendingResults) {
    m_result_list_.push_back(record);
  }
  PostToSelf(TCP_SESSION_SEND_IVS_RESULT);
}

void MQTTAdapter::OnLanectrlResult(const std::string& body) {
  Json::Value message;
  if (body.empty() || !Json::String2Json(body, message) || !HasMember(message, "results")) {
    return;
  }
  ADAPTER_LOG_AS("OnDpMessage", kLogInfo, "lanectrl_result start :%s.", body.c_str());
  OnLanectrlResultEvent(message, 0);
}

void MQTTAdapter::OnSendIvsResult(const tarvex::Message& /*msg*/) {
  // The newest only: older ones wait for a confirmation with their plate id.
  if (!m_result_list_.empty()) {
    OnIvsResultEvent(&m_result_list_.back(), 0);
  }
}

void MQTTAdapter::OnSendOfflineRecord(const tarvex::Message& /*msg*/) {
  if (!m_offline_mgr_) {
    return;
  }
  const int count = m_offline_mgr_->GetCountOfflineRecords();
  ADAPTER_LOG_AS("OnMessage", kLogInfo, "offline_count : %d", count);
  IvsOfflineInfo* record = count > 0 ? m_offline_mgr_->GetFirstOfflieRecord() : nullptr;
  if (record != nullptr) {
    OnIvsResultEvent(&record->result, 1);
    return;
  }
  PostToSelfDelayed(kOfflinePause_ms, TCP_SESSION_NOTIFY_OFFLINE_COUNT, nullptr);
}

void MQTTAdapter::OnSendOfflineCount(const tarvex::Message& /*msg*/) { OnNotifyOfflineCount(); }

void MQTTAdapter::PostToSelf(unsigned int id) {
  if (m_event_service_) {
    m_event_service_->Post(this, id, boost::shared_ptr<tarvex::MessageData>(), false);
  }
}

void MQTTAdapter::PostToSelfDelayed(int delay_ms, unsigned int id,
                                    boost::shared_ptr<tarvex::MessageData> data) {
  if (m_event_service_) {
    m_event_service_->PostDelayed(delay_ms, this, id, data);
  }
}

void MQTTAdapter::ClearPosted(unsigned int id) {
  if (m_event_service_) {
    m_event_service_->Clear(this, id, nullptr);
  }
}

void MQTTAdapter::ClearAllPosted() {
  for (const PostedRow& row : kPosted) {
    try {
      ClearPosted(row.id);
    } catch (...) {
      LogCaughtException(__func__);
    }
  }
}

}  // namespace qex
