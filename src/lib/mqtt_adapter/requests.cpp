// The names that the adapter deals in, subscription, the dispatch of requests, and
// what the request handlers share.
#include <cstdio>
#include <type_traits>
#include <utility>

#include "entry_guard.h"
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {
namespace {

/// Of a service's reply, in bytes: a longer one is read anew each time.
constexpr size_t kMostKeptOfReply = 1024;

/// A published name. Most have nothing behind them but an answer to a request.
struct PublishRow {
  const char* name;
  const char* topic;         ///< bus topic behind it, or null
  const char* logged_topic;  ///< what its log entry names
};

constexpr PublishRow kPublishes[] = {
    {"ivs_result", kTopicIvsResult, kTopicIvsResult},
    {"lanectrl_result", kTopicLanectrlResult, kTopicLanectrlResult},
    // The entry deliberately names another topic than the one listened to.
    {"gpio_in", kTopicExternalTrigger, "EVS_IVS_TRIGGER"},
    {"serial_data", kTopicSerialRead, kTopicSerialRead},
    {"snapshot", nullptr, nullptr},
    {"bind_device_list", nullptr, nullptr},
    {"agent_rtsp_url", nullptr, nullptr},
    {"agent_talkback_port", nullptr, nullptr},
    {"offline_record", nullptr, nullptr},
    {"get_image_by_id", nullptr, nullptr},
    {"white_list_operator", nullptr, nullptr},
    {"get_device_timestamp", nullptr, nullptr},
    {"wl_check_status", nullptr, nullptr},
    {"get_sn", nullptr, nullptr},
    {"get_last_result", nullptr, nullptr},
    {"get_io_out_status", nullptr, nullptr},
    {"get_ad_voice", nullptr, nullptr},
    {"get_lcd_bright", nullptr, nullptr},
};
static_assert(std::extent<decltype(kPublishes)>::value == 18, "every published name has its row");

const PublishRow* FindPublish(const std::string& name) {
  for (const PublishRow& row : kPublishes) {
    if (name == row.name) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace

/// In the order of comparison.
const MQTTAdapter::RequestRow MQTTAdapter::kRequests[] = {
    {"set_cloud_ctrl", &MQTTAdapter::DoCmdCtrlCloud},
    {"ivs_trigger", &MQTTAdapter::DoCmdTrigger},
    {"gpio_out", &MQTTAdapter::DoCmdGpioOut},
    {"serial_data", &MQTTAdapter::DoCmdWrite485},
    {"set_time", &MQTTAdapter::DoCmdSetTime},
    {"snapshot", &MQTTAdapter::DoCmdSnapshot},
    {"reboot_dev", &MQTTAdapter::DoCmdReboot},
    {"check_offline_record", &MQTTAdapter::DoCmdSendOffline},
    {"bind_device_list", &MQTTAdapter::DoCmdBindDeviceList},
    {"agent_rtsp_url", &MQTTAdapter::DoCmdAgentRtspUrl},
    {"agent_talkback_port", &MQTTAdapter::DoCmdAgentTalkbackPort},
    {"lanectrl_result_cfg", &MQTTAdapter::DoCmdAgentLanectrlResultCfg},
    {"get_image_by_id", &MQTTAdapter::DoCmdGetImageById},
    {"white_list_operator", &MQTTAdapter::DoCmdForWLOperator},
    {"get_device_timestamp", &MQTTAdapter::DoCmdGetDeviceTimestamp},
    {"wl_check_status", &MQTTAdapter::DoCmdWLCheckStatus},
    {"get_sn", &MQTTAdapter::DoCmdGetSn},
    {"get_last_result", &MQTTAdapter::DoCmdGetLastResult},
    {"get_io_out_status", &MQTTAdapter::DoCmdGetIoOutStatus},
    {"get_ad_voice", &MQTTAdapter::DoCmdGetAdVoice},
    {"set_ad_voice", &MQTTAdapter::DoCmdSetAdVoice},
    {"get_lcd_bright", &MQTTAdapter::DoCmdGetLcdBright},
    {"set_lcd_bright", &MQTTAdapter::DoCmdSetLcdBright},
};

void MQTTAdapter::GetMessageNames(std::set<std::string>& requests,
                                  std::set<std::string>& publishes) try {
  static_assert(std::extent<decltype(kRequests)>::value == 23, "every request has its row");
  puts("\033[31m GetMessageNames \033[0m ");
  for (const RequestRow& row : kRequests) {
    requests.insert(row.name.to_string());
  }
  for (const PublishRow& row : kPublishes) {
    publishes.insert(row.name);
  }
} catch (...) {
  LogCaughtException(__func__);
}

bool MQTTAdapter::SubscribeMessage(const std::string& name) try {
  if (!m_dp_client_) {
    return false;
  }
  ADAPTER_LOG(kLogDebug, "SubscribeMessage: name= %s", name.c_str());
  const PublishRow* row = FindPublish(name);
  if (row == nullptr) {
    return false;
  }
  if (row->topic != nullptr) {
    const int ret = m_dp_client_->ListenMessage(row->topic, 0);
    ADAPTER_LOG(kLogDebug, " message:[%s] listen %s ret=%d", name.c_str(), row->logged_topic, ret);
    return ret == 0;
  }
  if (name == "snapshot") {
    printf("\033[31m message:[%s] SubscribeMessage success. \033[0m \n", name.c_str());
  } else if (name == "offline_record") {
    ADAPTER_LOG(kLogDebug, "message:[%s] SubscribeMessage success.", name.c_str());
    OnNotifyOfflineCount();
  }
  return true;
} catch (...) {
  return Guarded(__func__, false);
}

void MQTTAdapter::UnsubscribeMessage(const std::string& name) try {
  if (!m_dp_client_) {
    return;
  }
  // The text of the subscription serves here too, deliberately.
  ADAPTER_LOG(kLogDebug, "SubscribeMessage: name= %s", name.c_str());
  const PublishRow* row = FindPublish(name);
  if (row != nullptr && row->topic != nullptr) {
    m_dp_client_->RemoveListenMessage(row->topic);
  }
} catch (...) {
  LogCaughtException(__func__);
}

bool MQTTAdapter::RequestMessage(const std::string& name, const Json::Value& payload,
                                 const std::string& version, Json::Value& response) try {
  ADAPTER_LOG(kLogDebug, "RequestMessage name=%s version=%s ", name.c_str(), version.c_str());
  for (const RequestRow& row : kRequests) {
    if (name == row.name) {
      return (this->*row.handler)(payload, version, response);
    }
  }
  return false;
} catch (...) {
  return Guarded(__func__, false);
}

const Json::Value* MQTTAdapter::TypeOf(const Json::Value& payload, const char* function) {
  if (!payload.isObject()) {
    ADAPTER_LOG_AS(function, kLogWarning, "invalid payload, not json object");
    return nullptr;
  }
  static constexpr char kType[] = "type";
  const Json::Value* type = payload.find(kType, kType + sizeof(kType) - 1);
  if (type == nullptr) {
    ADAPTER_LOG_AS(function, kLogWarning, "payload parameter is incomplete and type is missing");
  }
  return type;
}

bool MQTTAdapter::IsRequest(const Json::Value& payload, boost::string_view name,
                            const char* function) {
  const Json::Value* type = TypeOf(payload, function);
  return type != nullptr && IsText(*type, name);
}

bool MQTTAdapter::TypeIs(const Json::Value& payload, boost::string_view name) {
  return IsText(Member(payload, "type"), name);
}

bool MQTTAdapter::CheckPayloadIsValid(const Json::Value& payload) {
  const Json::Value* type = TypeOf(payload, __func__);
  return type != nullptr && type->isString();
}

Json::Value& MQTTAdapter::KeptRequest(const char* type) {
  auto kept = m_kept_requests_.find(type);
  if (kept == m_kept_requests_.end()) {
    // Whole before it is kept: where memory runs out in between, the next use makes it anew.
    Json::Value request;
    request["type"] = type;
    kept = m_kept_requests_.emplace(type, std::move(request)).first;
  }
  return kept->second;
}

int MQTTAdapter::SendBusRequest(const char* queue, const std::string& request, int timeout_ms,
                                std::string* reply) {
  if (!m_dp_client_) {
    return 0;
  }
  return m_dp_client_->SendRequest(queue, 0, request.data(), request.size(), reply, timeout_ms);
}

std::shared_ptr<const Json::Value> MQTTAdapter::ParsedReply(const char* queue,
                                                            const std::string& reply) {
  KeptReply& kept = m_kept_replies_[queue];
  if (kept.json && kept.text == reply) {
    return kept.json;
  }
  const auto parsed = std::make_shared<Json::Value>();
  if (reply.empty() || !Json::String2Json(reply, *parsed)) {
    return nullptr;
  }
  if (reply.size() <= kMostKeptOfReply) {
    kept.text = reply;
    kept.json = parsed;
  }
  return parsed;
}

std::shared_ptr<const Json::Value> MQTTAdapter::AskForJson(const char* queue,
                                                           const std::string& request,
                                                           int timeout_ms) {
  std::string reply;
  SendBusRequest(queue, request, timeout_ms, &reply);
  return ParsedReply(queue, reply);
}

void MQTTAdapter::Publish(const char* name, const Json::Value& payload, unsigned long long tag) {
  SignalPushMessage(name, payload, kVersion, tag);
}

}  // namespace qex
