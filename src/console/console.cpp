#include "console/console.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

#include "console/passports/message_kinds.h"
#include "json_text.h"
#include "platform/host_port.h"
#include "platform/json_member.h"
#include "platform/log.h"
#include "platform/trace.h"

namespace console {
namespace {

using std::chrono::milliseconds;
using tarvex::Member;

constexpr char kPassportQueue[] = "CONSOLE_PASSPORTS";
constexpr char kControlQueue[] = "CAMERA_CTL";

constexpr std::chrono::seconds kSecond{1};
constexpr milliseconds kFlush{100};
constexpr milliseconds kStateTimeout{900};
constexpr milliseconds kRecordTimeout{5000};
constexpr std::size_t kMaxPassportAnswer_bytes = 900000;  // the bus takes a million
constexpr int kListed = 20;

std::string ToText(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Those of the contract, which is JSON text.
std::set<std::string> RequestNames(const std::string& text) {
  Json::Value contract;
  if (!Json::String2Json(text, contract)) {
    throw std::runtime_error("the contract is not JSON");
  }
  constexpr char kRequest[] = "request_";
  std::set<std::string> names;
  const Json::Value& messages = Member(Member(contract, "components"), "messages");
  for (const std::string& member : messages.getMemberNames()) {
    if (member.rfind(kRequest, 0) == 0) {
      names.insert(member.substr(sizeof(kRequest) - 1));
    }
  }
  return names;
}

std::string AskedText(BusClient::Asked outcome) {
  switch (outcome) {
    case BusClient::Asked::kNobody:
      return "no camera listens on the bus";
    case BusClient::Asked::kTimedOut:
      return "no answer in time";
    case BusClient::Asked::kNotConnected:
      return "the bus is not there";
    case BusClient::Asked::kAnswered:
      break;
  }
  return "the answer is not understood";
}

Json::Value ToArray(const std::vector<const Passport*>& passports) {
  Json::Value array(Json::arrayValue);
  for (const Passport* passport : passports) {
    array.append(passport->ToJson());
  }
  return array;
}

Json::Value Listed(const Passport& passport) {
  Json::Value json(Json::objectValue);
  json["id"] = passport.id;
  json["kind"] = passport.kind;
  json["name"] = passport.name;
  json["state"] = passport.state;
  json["at_us"] = Json::Int64{passport.at_us};
  if (!passport.plate.empty()) {
    json["plate"] = passport.plate;
  }
  return json;
}

}  // namespace

Console::Console(boost::asio::io_context& context, const ConsoleOptions& options)
    : options_(options),
      desk_({tarvex::HostAndPortText(options.broker.host, options.broker.port),
             options.has_bus ? tarvex::EffectiveServersText(tarvex::BusAddress()) : ""}),
      contract_(ReadFile(options.contract_file)),
      metrics_(RequestNames(contract_)),
      book_([this](const Passport& passport, const char* step) { OnStep(passport, step); }),
      run_("console-" + std::to_string(tarvex::TraceClock_us() / 1000000) + "-"),
      second_(context),
      flush_(context) {
  for (const auto& [sn, prefix] : options_.cameras) {
    desk_.AddCamera(sn, options_.agent_pids.count(sn) != 0);
  }
  // The page comes first: that its port is in use is what people should hear.
  server_ = std::make_unique<HttpServer>(
      context, options_.port,
      HttpServer::Handlers{
          [this](const HttpRequest& request, const Reply& reply) { OnRequest(request, reply); },
          [this](const HttpRequest& request) {
            return request.path == "/ws" ? RequestCheck(server_->port(), token_).Origin(request)
                                         : std::string("there is no WebSocket here");
          },
          [this] { return Snapshot(); }});
  if (options_.link_port != 0) {
    link_ = std::make_unique<TcpProxy>(options_.broker.port, options_.link_port);
    link_state_.port = link_->port();
    desk_.OnLink(link_state_, tarvex::TraceClock_us());
  }
  if (options_.has_bus) {
    bus_ = std::make_unique<BusClient>(
        context, [this](bool is_connected) { desk_.OnBus(is_connected, tarvex::TraceClock_us()); });
  }
  for (const auto& [sn, prefix] : options_.cameras) {
    ListenToCamera(sn, prefix);
  }
  BrokerClient::Options broker = options_.broker;
  broker.client_id = "console-" + std::to_string(server_->port());
  broker_ = std::make_unique<BrokerClient>(
      context, broker,
      BrokerClient::Handlers{
          [this](bool is_connected) { desk_.OnBroker(is_connected, tarvex::TraceClock_us()); },
          [this](const BrokerMessage& message) { book_.OnBrokerMessage(message); },
          [this](const std::string& sn, const std::string& text) { OnStatus(sn, text); }});
  EverySecond();
  Flush();
}

Console::~Console() = default;

std::string Console::Address() const {
  return "http://127.0.0.1:" + std::to_string(server_->port()) + "/";
}

// What is heard ---------------------------------------------------------------------

void Console::ListenToCamera(const std::string& sn, const std::string& prefix) {
  bus_->Listen(prefix + tarvex::kTraceTopic,
               [this](const std::string& text, Time_us) { OnTrace(text); });
  for (const MessageKind& kind : MessageKinds()) {
    const std::string topic = kind.topic;
    bus_->Listen(prefix + topic, [this, sn, topic](const std::string& body, Time_us at_us) {
      book_.OnBusMessage(sn, topic, body, at_us);
    });
  }
  bus_->ServeQueue(prefix + kPassportQueue,
                   [this](const std::string& question) { return AnswerPassport(question); });
}

void Console::OnTrace(const std::string& text) {
  Json::Value event;
  if (!Json::String2Json(text, event) || !event.isObject()) {
    return;
  }
  const Json::Value& sn = Member(event, "sn");
  if (Member(event, "event") == "link" && sn.isString() && desk_.Knows(sn.asString())) {
    const Json::Value& reason = Member(event, "reason");
    desk_.OnAgentLink(sn.asString(), Member(event, "up") == true,
                      reason.isString() ? reason.asString() : "no reason given",
                      tarvex::TraceClock_us());
  }
  book_.OnTrace(event);
}

void Console::OnStatus(const std::string& sn, const std::string& text) {
  desk_.OnStatus(sn, text, tarvex::TraceClock_us());
  if (desk_.Knows(sn)) {
    metrics_.OnOnline(sn, desk_.IsOnline(sn));
    OnBacklog(sn);
  }
}

void Console::OnBacklog(const std::string& sn) {
  if (const auto backlog = desk_.BacklogOf(sn)) {
    metrics_.OnBacklog(sn, *backlog);
  }
}

void Console::OnStep(const Passport& passport, const std::string& step) {
  metrics_.OnStep(passport, step.c_str());
  desk_.OnStep(passport, step, tarvex::TraceClock_us());
  if (step != "published" || !passport.plate_id || passport.bus) {
    return;
  }
  // It went over the bus before the console listened: the camera has it in its store.
  Json::Value command(Json::objectValue);
  command["command"] = "record";
  command["plate_id"] = *passport.plate_id;
  const std::string sn = passport.sn;
  AskCamera(
      sn, command, kRecordTimeout, [this, sn](const Json::Value& answer, const std::string& error) {
        if (error.empty()) {
          book_.OnStoredRecord(sn, tarvex::TracedBytes(answer, "record"), tarvex::TraceClock_us());
        }
      });
}

std::string Console::AnswerPassport(const std::string& question) const {
  Json::Value asked;
  Json::Value answer(Json::objectValue);
  answer["ok"] = true;
  const bool is_json = Json::String2Json(question, asked);
  const Json::Value& id = Member(asked, "id");
  if (is_json && id.isString() && !id.asString().empty()) {
    const Passport* passport = book_.FindShort(id.asString());
    if (passport == nullptr) {
      answer["ok"] = false;
      answer["error"] = "no passport of \"" + id.asString() + "\"; it may be too long ago";
    } else {
      answer["passport"] = passport->ToJson();
    }
  } else {
    const std::vector<const Passport*> all = book_.All();
    answer["passports"] = Json::Value(Json::arrayValue);
    for (auto latest = all.rbegin(); latest != all.rend() && latest - all.rbegin() < kListed;
         ++latest) {
      answer["passports"].append(Listed(**latest));
    }
  }
  std::string text = ToText(answer);
  return text.size() <= kMaxPassportAnswer_bytes
             ? text
             : R"({"ok":false,"error":"the passport is too long for the bus"})";
}

void Console::AskCamera(const std::string& sn, const Json::Value& command, milliseconds timeout,
                        std::function<void(const Json::Value&, const std::string&)> on_answer) {
  const auto camera = options_.cameras.find(sn);
  if (camera == options_.cameras.end()) {
    on_answer({}, "this camera is not on the console's bus");
    return;
  }
  bus_->Ask(
      camera->second + kControlQueue, ToText(command), timeout,
      [on_answer](BusClient::Asked outcome, const std::string& text) {
        Json::Value answer;
        const bool is_understood = outcome == BusClient::Asked::kAnswered &&
                                   Json::String2Json(text, answer) && Member(answer, "ok").isBool();
        on_answer(is_understood ? answer : Json::Value(), is_understood ? "" : AskedText(outcome));
      });
}

// What goes to the page -------------------------------------------------------------

void Console::EverySecond() {
  Json::Value command(Json::objectValue);
  command["command"] = "state";
  for (const auto& [sn, prefix] : options_.cameras) {
    AskCamera(sn, command, kStateTimeout,
              [this, sn = sn](const Json::Value& answer, const std::string& error) {
                desk_.OnWorld(sn, Member(answer, "state"), error, tarvex::TraceClock_us());
                OnBacklog(sn);
              });
  }
  book_.OnTime(tarvex::TraceClock_us());
  desk_.OnTime(tarvex::TraceClock_us());
  second_.expires_after(kSecond);
  second_.async_wait([this](const boost::system::error_code& error) {
    if (!error) {
      EverySecond();
    }
  });
}

void Console::Flush() {
  if (link_) {
    link_state_.connections = link_->connections();
    desk_.OnLink(link_state_, tarvex::TraceClock_us());
  }
  const std::vector<const Passport*> passports = book_.TakeChanged();
  Json::Value changes = desk_.TakeChanged(tarvex::TraceClock_us());
  if (server_->watchers() > 0 && (!passports.empty() || !changes.isNull())) {
    changes["type"] = "changes";
    if (!passports.empty()) {
      changes["passports"] = ToArray(passports);
    }
    server_->SendToAll(ToText(changes));
  }
  flush_.expires_after(kFlush);
  flush_.async_wait([this](const boost::system::error_code& error) {
    if (!error) {
      Flush();
    }
  });
}

std::string Console::Snapshot() const {
  Json::Value snapshot = desk_.All(tarvex::TraceClock_us());
  snapshot["type"] = "snapshot";
  snapshot["passports"] = ToArray(book_.All());
  return ToText(snapshot);
}

}  // namespace console
