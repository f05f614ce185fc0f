#include "virtual_camera/device/identity.h"

#include <exception>

#include <boost/asio/ip/address.hpp>

#include "json_text.h"
#include "platform/json_member.h"
#include "platform/log.h"
#include "tarvex/base64.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

constexpr char kSystemDatabase[] = "skvdb";
constexpr char kUserDatabase[] = "usr_data_kvdb";
constexpr char kNameKey[] = "dev_name";
constexpr char kAddressKey[] = "net_rj45";
constexpr char kUserDataKey[] = "bus_cipher_data";
constexpr size_t kMaxNameBytes = 64;

// Where the settings remember a value, and that the database may have an older one.
std::string KeptSetting(const std::string& key) { return "identity." + key; }
std::string NewerSetting(const std::string& key) { return "identity." + key + ".newer"; }

std::string Text(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

std::string AddressText(const std::string& ip) {
  Json::Value value;
  value["ip"] = ip;
  return Text(value);
}

std::string AddressOf(const std::string& text, const std::string& otherwise) {
  Json::Value value;
  const bool is_address = Json::String2Json(text, value) && tarvex::Member(value, "ip").isString();
  return is_address ? value["ip"].asString() : otherwise;
}

}  // namespace

Identity::Identity(Settings& settings, KeyValueStore& store, Announcer& announcer,
                   const IdentityDefaults& defaults)
    : settings_(settings), store_(store), announcer_(announcer) {
  const auto value = [&settings](const char* database, const char* key,
                                 const std::string& otherwise) {
    return KeyValue{database, key, settings.Text(KeptSetting(key)).value_or(otherwise),
                    settings.Text(NewerSetting(key)).value_or("") == "1"};
  };
  const KeyValue name = value(kSystemDatabase, kNameKey, tarvex::Base64::Encode(defaults.name));
  const KeyValue address = value(kSystemDatabase, kAddressKey, AddressText(defaults.ip));
  const KeyValue user_data = value(kUserDatabase, kUserDataKey, defaults.user_data);
  name_base64_ = name.value;
  ip_ = AddressOf(address.value, defaults.ip);
  store_.Begin({name, address, user_data},
               [this](const std::string& key, const std::string& text) { Adopt(key, text); });
}

std::string Identity::Name() const {
  std::string name;
  tarvex::Base64::DecodeFromArray(
      name_base64_.data(), name_base64_.size(),
      tarvex::Base64::kParseSkipAny | tarvex::Base64::kPaddingAny | tarvex::Base64::kEndAny, &name,
      nullptr);
  return name;
}

void Identity::Rename(const std::string& name, Done done) {
  if (name.empty() || name.size() > kMaxNameBytes) {
    throw RequestError("a name has 1 to 64 bytes");
  }
  const std::string encoded = tarvex::Base64::Encode(name);
  Put(kNameKey, encoded, [this, encoded, done](bool written) {
    Json::Value event;
    event["title"] = encoded;
    announcer_.Announce("SS_DEV_NAME_CHANGED", Text(event));
    done(written);
  });
  name_base64_ = encoded;
}

void Identity::Readdress(const std::string& ip, Done done) {
  boost::system::error_code error;
  boost::asio::ip::make_address(ip, error);
  if (error) {
    throw RequestError("\"" + ip + "\" is not an IP address");
  }
  Put(kAddressKey, AddressText(ip), [this, ip, done](bool written) {
    announcer_.Announce("SYS_SRV_IP_CHANGED", AddressText(ip));
    done(written);
  });
  ip_ = ip;
}

void Identity::Put(const std::string& key, const std::string& value,
                   std::function<void(bool)> done) {
  settings_.SetTexts({{NewerSetting(key), "1"}, {KeptSetting(key), value}});
  store_.Put(key, value, [this, key, done](bool written) {
    NoteWritten(key, written);
    done(written);
  });
}

void Identity::NoteWritten(const std::string& key, bool written) {
  if (!written) {
    SYS_LOG(kLogWarning, "%s is kept, but not in the key-value database yet", key.c_str());
    return;
  }
  try {
    settings_.SetText(NewerSetting(key), "0");
  } catch (const std::exception& error) {
    // The value is written once more at the next start, which changes nothing.
    SYS_LOG(kLogWarning, "%s is in the key-value database, which cannot be noted: %s", key.c_str(),
            error.what());
  }
}

void Identity::Adopt(const std::string& key, const std::string& value) {
  settings_.SetText(KeptSetting(key), value);
  if (key == kNameKey) {
    name_base64_ = value;
  } else if (key == kAddressKey) {
    ip_ = AddressOf(value, ip_);
  }
}

}  // namespace virtual_camera
