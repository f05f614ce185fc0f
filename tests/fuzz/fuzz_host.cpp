#include "fuzz_host.h"

#include <cstring>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include <json/reader.h>
#include <boost/container_hash/hash.hpp>

#include "json_text.h"
#include "support/contract.h"

namespace fuzz {
namespace {

/// What the plug-in may ask, of whom, and how long it waits for the answer. Written down here once
/// more, so that a slip in the plug-in's own table shows.
struct BusRow {
  const char* queue;
  const char* type;  ///< null: the request is no JSON
  int timeout_ms;
};
constexpr BusRow kBusRows[] = {
    {"SS_BUS_REQUEST", "ss_set_timing", 5000},
    {"SS_BUS_REQUEST", "reboot_dev", 3000},
    {"EVS_BUS_REQUEST", "evs_get_gpioout", 3000},
    {"EVS_GPIO_CONTROL", nullptr, 300},
    {"EVS_RS485_WRITE", nullptr, 300},
    {"ALG_REQUEST_MESSAGE", "AVS_TRIGGER", 5000},
    {"ALG_REQUEST_MESSAGE", "AV_SRV_GET_SNAPSHOT", 3000},
    {"AD_HTTP_REQUESTION", "get_ad_voice_config", 5000},
    {"AD_HTTP_REQUESTION", "set_ad_voice_config", 5000},
    {"BUS_REQUEST_MESSAGE", "set_cloud_ctrl", 1000},
    {"BUS_GET_IVS_INFO", "get_last_ivs", 3000},
    {"BUS_GET_IVS_INFO", "get_img_path_by_id", 3000},
    {"BUS_GET_IVS_INFO", "STP_GET_MQTT_OFFLINE_COUNT", 5000},
    {"BUS_GET_IVS_INFO", "STP_SELECT_MQTT_OFFLINE_RECORD", 5000},
    {"BUS_GET_IVS_INFO", "STP_SET_MQTT_OFFLINE_STATUS", 5000},
    {"BUS_GET_IVS_INFO", "STP_CLEAR_MQTT_OFFLINE", 5000},
    {"BUS_WHITE_LIST_INFO", "delete_white_list", 3000},
    {"BUS_WHITE_LIST_INFO", "replace_white_list", 3000},
    {"BUS_WHITE_LIST_INFO", "set_wl_check_status", 3000},
    {"BUS_WHITE_LIST_INFO", "get_wl_check_status", 3000},
    {"user_get_mate_info", "user_get_mate_info", 3000},
    {"user_get_rtsp_info", "user_get_rtsp_info", 3000},
    {"user_request_talkback", "user_request_talkback", 3000},
    {"stay_event_enable", "stay_event_enable", 5000},
};

struct PublicationRow {
  const char* name;
  unsigned long long tag;
};
constexpr PublicationRow kPublicationRows[] = {
    {"ivs_result", 11},           {"lanectrl_result", 12},   {"gpio_in", 13},
    {"serial_data", 14},          {"snapshot", 15},          {"ivs_result", 16},
    {"offline_record", 17},       {"bind_device_list", 18},  {"agent_rtsp_url", 19},
    {"agent_talkback_port", 20},  {"get_image_by_id", 21},   {"white_list_operator", 22},
    {"get_device_timestamp", 23}, {"wl_check_status", 24},   {"get_sn", 25},
    {"get_last_result", 26},      {"get_io_out_status", 27}, {"get_ad_voice", 28},
    {"get_lcd_bright", 29},
};

constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";
constexpr std::size_t kRecord_bytes = 552;
constexpr std::size_t kPlateIdAt = 80;
constexpr std::size_t kMostWaiting = 20;
constexpr unsigned long long kLiveResultTag = 11;

/// JSON as strict as the platform's, but nested deeper: what was read may be sent within more.
bool Read(const std::string& text, Json::Value* value) {
  static const std::unique_ptr<Json::CharReader> reader = [] {
    Json::CharReaderBuilder builder;
    builder["allowComments"] = false;
    builder["collectComments"] = false;
    builder["allowTrailingCommas"] = false;
    builder["failIfExtra"] = true;
    builder["stackLimit"] = 2000;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
  }();
  return reader->parse(text.data(), text.data() + text.size(), value, nullptr);
}

bool IsWhole(const Json::Value& value) {
  return value.type() == Json::intValue || value.type() == Json::uintValue;
}

std::string_view NameOf(const Json::Value::const_iterator& member) {
  const char* end = nullptr;
  const char* const name = member.memberName(&end);
  return {name, static_cast<std::size_t>(end - name)};
}

/// Whether two values are the same. A number that is 0 or more may be unsigned in one of them.
bool IsSame(const Json::Value& one, const Json::Value& other) {
  if (IsWhole(one) && IsWhole(other)) {
    return one.isUInt64() == other.isUInt64() &&
           (one.isUInt64() ? one.asLargestUInt() == other.asLargestUInt()
                           : one.asLargestInt() == other.asLargestInt());
  }
  const bool has_parts = one.isArray() || one.isObject();
  if (!has_parts || one.type() != other.type() || one.size() != other.size()) {
    return one == other;
  }
  auto part = one.begin();
  for (auto mate = other.begin(); mate != other.end(); ++part, ++mate) {
    if ((one.isObject() && NameOf(part) != NameOf(mate)) || !IsSame(*part, *mate)) {
      return false;
    }
  }
  return true;
}

/// Bytes that are no UTF-8 are written as another character: what was read then is the same when
/// it is written and read once more.
void CheckJson(const Json::Value& value) {
  std::string text;
  Check(Json::Json2String(value, text), "what is sent can be written as JSON");
  Json::Value read;
  Check(Read(text, &read), "what is sent is JSON: " + text);
  if (IsSame(value, read)) {
    return;
  }
  Check(text.find("\xEF\xBF\xBD") != std::string::npos,
        "what is sent is the same when read: " + text);
  std::string again;
  Json::Value read_again;
  Check(Json::Json2String(read, again) && Read(again, &read_again) && IsSame(read, read_again),
        "what is mended stays as it is: " + text);
}

/// A number for the kinds and names of all members.
std::size_t ShapeOf(const Json::Value& value) {
  std::size_t shape = 0;
  boost::hash_combine(shape, static_cast<int>(value.type()));
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (value.isObject()) {
      boost::hash_combine(shape, std::hash<std::string_view>()(NameOf(member)));
    }
    boost::hash_combine(shape, ShapeOf(*member));
  }
  return shape;
}

void CheckContract(const std::string& schema, const Json::Value& document) {
  static std::set<std::pair<std::string, std::size_t>> seen;
  static std::uint64_t calls = 0;
  constexpr std::size_t kMostSeen = 100000;
  if (seen.size() > kMostSeen) {
    seen.clear();
  }
  if (!seen.emplace(schema, ShapeOf(document)).second && ++calls % 64 != 0) {
    return;
  }
  const std::string violations = Contract::Instance().Violations(schema, document);
  if (!violations.empty()) {
    std::string text;
    Json::Json2String(document, text);
    Check(false, "in the contract as " + schema + ": " + violations + text);
  }
}

/// The kind of a bus request, empty of one that is no JSON.
std::string TypeOf(const fake::BusRequest& request) {
  if (request.queue == "EVS_GPIO_CONTROL" || request.queue == "EVS_RS485_WRITE") {
    return "";
  }
  Json::Value document;
  Check(Read(request.data, &document) && document.isObject() && document["type"].isString(),
        "a bus request is an object with a type: " + request.data);
  return document["type"].asString();
}

void CheckBusRequest(const fake::BusRequest& request) {
  Check(request.flags == 0 && request.into_empty_reply, "a bus request as the client takes it");
  const std::string type = TypeOf(request);
  for (const BusRow& row : kBusRows) {
    if (request.queue == row.queue && type == (row.type != nullptr ? row.type : "")) {
      Check(request.timeout_ms == row.timeout_ms, type + " waits its time");
      return;
    }
  }
  Check(false, "a queue has requests of that type: " + request.queue + " " + type);
}

std::uint32_t PlateIdOf(const std::string& record) {
  std::uint32_t id = 0;
  memcpy(&id, record.data() + kPlateIdAt, sizeof(id));
  return id;
}

}  // namespace

Json::Value AnyValue(const std::string& text) {
  Json::Value value;
  return Json::String2Json(text, value) ? value : Json::Value(text);
}

std::string RecordOf(const std::string& head) {
  std::string record = head.substr(0, kRecord_bytes);
  record.resize(kRecord_bytes);
  return record;
}

fake::BusAnswer GoodCamera(const fake::BusRequest& request) {
  const std::string type = TypeOf(request);
  if (type == "get_last_ivs") {
    return {1, RecordOf("A1")};
  }
  if (type == "STP_GET_MQTT_OFFLINE_COUNT") {
    return {1, R"({"body":{"offline_count":2}})"};
  }
  if (type == "STP_SELECT_MQTT_OFFLINE_RECORD") {
    return {1, (RecordOf("B2") + "\1\2\3\4") + (RecordOf("C3") + "\1\2\3\4")};
  }
  return {1, R"({"body":{"img_path":"/a.jpg","gpio_out_status":1,"filter_enable":1,)"
             R"("media_voice_time_ctrl":{"a":1},"led_bright_mode":1,"led_bright_time_ctrl":[1]}})"};
}

Host::Host(Camera camera, const Missing& missing)
    : camera_(std::move(camera)),
      events_(new fake::EventService),
      has_bus_(!missing.bus),
      has_store_(!missing.bus && !missing.system_database && !missing.user_database) {
  fake::ResetPlatform();
  fake::Platform& platform = fake::ThePlatform();
  platform.camera = [this](const fake::BusRequest& request) { return Answer(request); };
  platform.has_bus = has_bus_;
  if (missing.system_database) {
    platform.missing_databases.insert("skvdb");
  }
  if (missing.user_database) {
    platform.missing_databases.insert("usr_data_kvdb");
  }
  platform.databases["skvdb"]["net_rj45"] = R"({"ip":"192.168.1.2"})";
  on_picture = [](const std::string& source, const std::string&) { return source; };
  Call([&] {
    adapter_ = create_adapter(events_, 1);
    adapter_->SignalPushMessage.connect(this, &Host::OnPush);
    std::function<std::string(const std::string&, const std::string&)> image_function;
    if (!missing.image_function) {
      image_function = [this](const std::string& source, const std::string& name) {
        return on_picture(source, name);
      };
    }
    const int wanted = has_bus_ && !has_store_ ? 1 : 0;
    Check(adapter_->Initialize(image_function) == wanted, "Initialize says what is missing");
  });
}

Host::~Host() {
  Call([this] { destory_adapter(adapter_); });
  for (const fake::EventService::Pending& pending : events_->pending) {
    Check(pending.message.message_id < 199401 || pending.message.message_id > 199405,
          "no message is left for a plug-in that is gone");
  }
  fake::ThePlatform().camera = nullptr;
}

bool Host::Request(const std::string& name, const Json::Value& payload,
                   const std::string& version) {
  const std::string outer = std::exchange(requested_, name);
  const Json::Value outer_answer = std::exchange(answer_, Json::Value());
  bool done = false;
  Json::Value response;
  Call([&] { done = adapter_->RequestMessage(name, payload, version, response); });
  CheckJson(response);
  Json::Value document;
  if (!answer_.isNull()) {
    document["answer"] = answer_;
  }
  document["result"] = done;
  document["response"] = response;
  if (!done) {
    document["error"] = "the camera refused or did not carry out the request";
    document["code"] = "refused";
  }
  CheckContract(Contract::Instance().ResponseSchema(name), document);
  requested_ = outer;
  answer_ = outer_answer;
  return done;
}

void Host::Deliver(const std::string& topic, const std::string& body) {
  if (!has_bus_) {
    return;
  }
  if (topic == kResultTopic && body.size() == kRecord_bytes && waiting_.size() < kMostWaiting) {
    waiting_.push_back(PlateIdOf(body));
  }
  Call([&] { fake::ThePlatform().Deliver(topic, body); });
}

void Host::Acknowledge(unsigned long long tag) {
  const std::uint64_t before = status_requests_;
  has_failed_ = false;
  Call([&] { adapter_->OnMessagePublished(tag); });
  if (tag != kLiveResultTag) {
    return;
  }
  if (waiting_.empty() || !has_store_) {
    Check(status_requests_ == before, "no result is marked that does not wait");
  } else {
    Check(status_requests_ == before + 1 && last_marked_ == waiting_.back(),
          "the newest result is marked");
  }
  for (auto id = waiting_.begin(); !has_failed_ && id != waiting_.end(); ++id) {
    if (*id == waiting_.back()) {
      waiting_.erase(id);
      break;
    }
  }
}

void Host::AcknowledgeAll() {
  camera_ = GoodCamera;
  for (std::size_t left = waiting_.size() + 1; left > 0; --left) {
    Acknowledge(kLiveResultTag);
  }
}

void Host::Subscribe(const std::string& name) {
  Call([&] { adapter_->SubscribeMessage(name); });
}

void Host::Unsubscribe(const std::string& name) {
  Call([&] { adapter_->UnsubscribeMessage(name); });
}

void Host::LinkUp() {
  Call([this] { adapter_->OnMQTTConnected(); });
}

void Host::LinkDown() {
  Call([this] { adapter_->OnMQTTDisconnected(); });
}

void Host::Post(unsigned int id) {
  if (auto* handler = dynamic_cast<tarvex::MessageHandler*>(adapter_)) {
    events_->Post(handler, id, nullptr, false);
  }
}

void Host::Tick(int elapsed_ms) {
  Call([&] { events_->Tick(elapsed_ms); });
}

void Host::Call(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& thrown) {
    Check(false, std::string("nothing is thrown: ") + thrown.what());
  } catch (...) {
    Check(false, "nothing is thrown");
  }
}

fake::BusAnswer Host::Answer(const fake::BusRequest& request) {
  CheckBusRequest(request);
  Json::Value document;
  if (request.queue == "BUS_GET_IVS_INFO" && Read(request.data, &document) &&
      document["type"] == "STP_SET_MQTT_OFFLINE_STATUS") {
    ++status_requests_;
    last_marked_ = document["body"]["plate_id"].asUInt();
  }
  try {
    return camera_(request);
  } catch (...) {
    has_failed_ = true;
    throw;
  }
}

void Host::OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
                  unsigned long long tag) {
  bool is_known = false;
  for (const PublicationRow& row : kPublicationRows) {
    is_known = is_known || (name == row.name && tag == row.tag);
  }
  Check(is_known && version == "1.0", "a publication has its tag: " + name);
  CheckJson(payload);
  Json::Value document;
  document["version"] = version;
  document["tag"] = Json::UInt64{tag};
  document["payload"] = payload;
  CheckContract("message_" + name, document);
  if (name == requested_) {
    answer_ = payload;
  }
  if (on_publication) {
    on_publication(tag);
  }
}

}  // namespace fuzz
