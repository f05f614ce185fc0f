// Serial number, name and address of the device, and the block that carries them.
#include "chw_info.h"
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"
#include "tarvex/base64.h"

namespace qex {
namespace {

constexpr char kDefaultName[] = "IVS";

/// A text that belongs to the user; opaque to the adapter.
std::string ReadUserData(const boost::shared_ptr<cache::KvdbClient>& database) {
  std::string text;
  if (database) {
    database->GetValue("bus_cipher_data", &text);
  }
  return text;
}

}  // namespace

void MQTTAdapter::OnIpChange(const std::string& body) {
  ADAPTER_LOG(kLogInfo, "MQTTAdapter::OnIpChange.");
  Json::Value change;
  if (Json::String2Json(body, change) && Member(change, "ip").isString()) {
    m_dev_ip_ = change["ip"].asString();
  }
}

void MQTTAdapter::OnNameChange(const std::string& body) {
  ADAPTER_LOG(kLogInfo, "MQTTAdapter::OnNameChange.");
  Json::Value change;
  if (Json::String2Json(body, change) && Member(change, "title").isString()) {
    // Deliberately as it stands, not Base64 like the default name.
    m_dev_name_ = change["title"].asString();
  }
}

std::string MQTTAdapter::GetDevName() {
  m_dev_name_ = tarvex::Base64::Encode(kDefaultName);
  if (m_skvdb_client_) {
    m_skvdb_client_->GetValue("dev_name", &m_dev_name_);
  }
  if (m_dev_name_.empty()) {
    m_dev_name_ = tarvex::Base64::Encode(kDefaultName);
  }
  ADAPTER_LOG(kLogInfo, "GetDevName : %s", m_dev_name_.c_str());
  return m_dev_name_;
}

std::string MQTTAdapter::GetDeviceIpFromDb() {
  std::string text;
  if (!m_skvdb_client_ || m_skvdb_client_->GetValue("net_rj45", &text) == 0) {
    ADAPTER_LOG(kLogError, "Get net_rj45 Failed");
    return std::string();
  }
  if (text != m_network_settings_) {  // every result asks; they hardly ever change
    Json::Value settings;
    boost::optional<std::string> ip;
    const bool is_json = Json::String2Json(text, settings);
    if (is_json && Member(settings, "ip").isString()) {
      ip = settings["ip"].asString();
    }
    // What is no JSON is read again the next time: memory may have run out.
    m_network_settings_ = is_json ? text : std::string();
    m_network_ip_.swap(ip);
  }
  if (m_network_ip_) {
    m_dev_ip_ = *m_network_ip_;
  }
  ADAPTER_LOG(kLogInfo, "device ip : %s", m_dev_ip_.c_str());
  return m_dev_ip_;
}

std::string MQTTAdapter::GetOemSn() {
  ChwInfo* info = ChwInfo::Interface();
  return info != nullptr ? info->GetOemSn() : std::string();
}

void MQTTAdapter::GetDevInfoJson(Json::Value& out) {
  out["user_data"] = ReadUserData(m_ukvdb_client_);
  out["serialno"] = m_sn_;
  out["deviceName"] = GetDevName();
  out["ipaddr"] = GetDeviceIpFromDb();
  out["channel"] = 0;
}

int MQTTAdapter::PackPlateBasicInfo(Json::Value& out) {
  out["channel"] = 0;
  out["user_data"] = ReadUserData(m_ukvdb_client_);
  out["serialno"] = m_sn_;
  out["deviceName"] = m_dev_name_;
  out["ipaddr"] = m_dev_ip_;
  return 0;
}

}  // namespace qex
