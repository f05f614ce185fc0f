#include "console/console.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <vector>

#include "console/http/files.h"
#include "json_text.h"
#include "platform/json_member.h"
#include "platform/log.h"
#include "platform/trace.h"
#include "tarvex/base64.h"

namespace console {
namespace {

using std::chrono::milliseconds;
using tarvex::Member;

constexpr char kPassportQueue[] = "CONSOLE_PASSPORTS";
constexpr char kControlQueue[] = "CAMERA_CTL";
constexpr const char* kTopics[] = {"BUS_SRV_IVS_RESULT",       "BUS_SRV_LANECTRL_RESULT",
                                   "EVT_SRV_EXTERNAL_TRIGGER", "EVS_RS485_READ",
                                   "SS_DEV_NAME_CHANGED",      "SYS_SRV_IP_CHANGED"};

constexpr std::chrono::seconds kSecond{1};
constexpr milliseconds kFlush{100};
constexpr milliseconds kStateTimeout{900};
constexpr milliseconds kCommandTimeout{5000};
constexpr std::size_t kMaxPassportAnswer_bytes = 900000;  // the bus takes a million
constexpr int kListed = 20;

std::string ToText(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

HttpResponse JsonResponse(const Json::Value& value) {
  HttpResponse response;
  response.body = ToText(value);
  return response;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> RequestNames(const std::string& contract_file) {
  Json::Value contract;
  if (!Json::String2Json(ReadFile(contract_file), contract)) {
    throw std::runtime_error(contract_file + " is not JSON");
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

std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (begin < path.size()) {
    const std::size_t end = std::min(path.find('/', begin + 1), path.size());
    parts.push_back(path.substr(begin + 1, end - begin - 1));
    begin = end;
  }
  return parts;
}

std::optional<std::string> Decoded(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const std::string digits = text.substr(i + 1, 2);
    if (digits.size() != 2 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      return std::nullopt;
    }
    decoded += static_cast<char>(std::stoi(digits, nullptr, 16));
    i += 2;
  }
  return decoded;
}

bool CanBeInTopic(const std::string& name) {
  return !name.empty() && name.size() <= 1024 &&
         name.find_first_of(std::string("+#\0", 3)) == std::string::npos;
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

std::string BusAddress() {
  const tarvex::SocketAddress address =
      tarvex::EffectiveAddress(tarvex::SocketAddress("127.0.0.1", 6101));
  return address.host() + ":" + std::to_string(address.port());
}

}  // namespace

Console::Console(boost::asio::io_context& context, const ConsoleOptions& options)
    : context_(context),
      options_(options),
      desk_({options.broker.host + ":" + std::to_string(options.broker.port), BusAddress()}),
      metrics_(RequestNames(options.contract_file)),
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
  bus_ = std::make_unique<BusClient>(
      context, [this](bool is_connected) { desk_.OnBus(is_connected, tarvex::TraceClock_us()); });
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
          [this](const std::string& sn, const std::string& text) {
            desk_.OnStatus(sn, text, tarvex::TraceClock_us());
          }});
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
  for (const char* topic : kTopics) {
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
  AskCamera(sn, command, kCommandTimeout,
            [this, sn](const Json::Value& answer, const std::string& error) {
              const Json::Value& record = Member(answer, "record");
              if (error.empty() && record.isString()) {
                const std::string text = record.asString();
                std::string bytes;
                tarvex::Base64::DecodeFromArray(text.data(), text.size(),
                                                tarvex::Base64::kParseStrict |
                                                    tarvex::Base64::kPaddingRequired |
                                                    tarvex::Base64::kEndAtBuffer,
                                                &bytes, nullptr);
                book_.OnStoredRecord(sn, bytes, tarvex::TraceClock_us());
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
                if (const auto backlog = desk_.BacklogOf(sn)) {
                  metrics_.OnBacklog(sn, *backlog);
                }
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

// What the page asks ----------------------------------------------------------------

void Console::OnRequest(const HttpRequest& request, const Reply& reply) {
  const RequestCheck check(server_->port(), token_);
  const bool is_change = request.method == "POST";
  const std::string refusal = is_change ? check.Change(request) : check.Host(request);
  if (!refusal.empty()) {
    reply(ErrorResponse(403, refusal));
  } else if (is_change) {
    Post(request, reply);
  } else if (request.method != "GET") {
    reply(ErrorResponse(405, "only GET and POST are served"));
  } else if (!AskedOfCamera(request, reply)) {
    reply(Get(request.path));
  }
}

HttpResponse Console::Get(const std::string& path) const {
  const std::vector<std::string> parts = SplitPath(path);
  if (path == "/") {
    return Page();
  }
  if (path == "/metrics") {
    HttpResponse response;
    response.type = "text/plain; version=0.0.4; charset=utf-8";
    response.body = metrics_.Text();
    return response;
  }
  if (path == "/contract.json") {
    HttpResponse response;
    response.body = ReadFile(options_.contract_file);
    return response;
  }
  if (parts.size() == 3 && parts[0] == "pictures") {
    const auto directory = options_.pictures.find(parts[1]);
    if (directory != options_.pictures.end()) {
      HttpResponse response = FileResponse(directory->second, parts[2]);
      response.may_be_kept = response.status == 200;
      return response;
    }
  }
  return parts.size() == 1 ? FileResponse(options_.page_directory, parts[0])
                           : ErrorResponse(404, "there is nothing at this address");
}

HttpResponse Console::Page() const {
  constexpr char kMark[] = "@TOKEN@";
  HttpResponse page = FileResponse(options_.page_directory, "index.html");
  const std::size_t mark = page.body.find(kMark);
  if (mark != std::string::npos) {
    page.body.replace(mark, sizeof(kMark) - 1, token_);
  }
  return page;
}

// @return false where the request is not of this kind.
bool Console::AskedOfCamera(const HttpRequest& request, const Reply& reply) {
  const std::vector<std::string> parts = SplitPath(request.path);
  if (parts.size() != 4 || parts[0] != "api" || parts[1] != "cameras") {
    return false;
  }
  const bool is_scene = parts[3] == "scene.jpg";
  if (!is_scene && parts[3] != "white-list") {
    return false;
  }
  Json::Value command(Json::objectValue);
  command["command"] = is_scene ? "scene" : "white-list";
  AskCamera(parts[2], command, kCommandTimeout,
            [reply, is_scene](const Json::Value& answer, const std::string& error) {
              const Json::Value& jpeg = Member(answer, "jpeg");
              if (!error.empty()) {
                reply(ErrorResponse(502, error));
              } else if (!is_scene || !jpeg.isString()) {
                reply(JsonResponse(answer));
              } else {
                HttpResponse picture;
                picture.type = "image/jpeg";
                const std::string text = jpeg.asString();
                tarvex::Base64::DecodeFromArray(text.data(), text.size(),
                                                tarvex::Base64::kParseStrict |
                                                    tarvex::Base64::kPaddingRequired |
                                                    tarvex::Base64::kEndAtBuffer,
                                                &picture.body, nullptr);
                reply(picture);
              }
            });
  return true;
}

void Console::Post(const HttpRequest& request, const Reply& reply) {
  const std::vector<std::string> parts = SplitPath(request.path);
  if (request.path == "/api/link") {
    reply(ChangeLink(request.body));
    return;
  }
  const bool is_of_camera = parts.size() >= 4 && parts[0] == "api" && parts[1] == "cameras";
  if (!is_of_camera) {
    reply(ErrorResponse(404, "there is nothing at this address"));
  } else if (!desk_.Knows(parts[2])) {
    reply(ErrorResponse(404, "there is no camera " + parts[2]));
  } else if (parts.size() == 5 && parts[3] == "requests") {
    const auto name = Decoded(parts[4]);
    reply(name && CanBeInTopic(*name)
              ? SendRequest(parts[2], *name, request.body)
              : ErrorResponse(400, "a request's name is not empty and has no + or #"));
  } else if (parts.size() == 4 && parts[3] == "world") {
    ChangeWorld(parts[2], request.body, reply);
  } else if (parts.size() == 4 && parts[3] == "restart-agent") {
    reply(RestartAgent(parts[2]));
  } else {
    reply(ErrorResponse(404, "there is nothing at this address"));
  }
}

HttpResponse Console::SendRequest(const std::string& sn, const std::string& name,
                                  const std::string& text) {
  Passport::Request request;
  request.topic = options_.broker.root + "/" + sn + "/request/" + name;
  request.payload = text;
  request.at_us = tarvex::TraceClock_us();
  request.correlation = run_ + std::to_string(++last_request_);
  if (!broker_->SendRequest(request.topic, text, request.correlation)) {
    return ErrorResponse(503, "the broker is not there: the request was not sent");
  }
  Json::Value answer(Json::objectValue);
  answer["correlation"] = request.correlation;
  answer["passport"] = book_.OnSent(sn, name, request);
  return JsonResponse(answer);
}

void Console::ChangeWorld(const std::string& sn, const std::string& text, const Reply& reply) {
  Json::Value command;
  if (!Json::String2Json(text, command) || !command.isObject()) {
    reply(ErrorResponse(400, "the command is no JSON object"));
    return;
  }
  AskCamera(
      sn, command, kCommandTimeout, [reply](const Json::Value& answer, const std::string& error) {
        if (!error.empty()) {
          reply(ErrorResponse(502, error));
        } else if (answer["ok"] == true) {
          reply(JsonResponse(answer));
        } else {
          reply(ErrorResponse(400, Member(answer, "error").isString() ? answer["error"].asString()
                                                                      : "the camera refused"));
        }
      });
}

HttpResponse Console::RestartAgent(const std::string& sn) {
  const auto file = options_.agent_pids.find(sn);
  if (file == options_.agent_pids.end()) {
    return ErrorResponse(404, "the console does not know this agent's process");
  }
  pid_t pid = 0;
  std::ifstream(file->second) >> pid;
  // The id may be that of another process by now.
  std::string program;
  std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> program;
  if (pid <= 1 || program != "cloud_agent" || kill(pid, SIGTERM) != 0) {
    return ErrorResponse(502, "there is no agent with the process id that is in " + file->second);
  }
  desk_.Tell("The agent of " + sn + " is told to end; it is started again.", "info",
             tarvex::TraceClock_us());
  return JsonResponse(Json::Value(Json::objectValue));
}

HttpResponse Console::ChangeLink(const std::string& text) {
  Json::Value wanted;
  if (!link_) {
    return ErrorResponse(404, "the console gives no link (--link-port)");
  }
  if (!Json::String2Json(text, wanted) || !wanted.isObject()) {
    return ErrorResponse(400, "the wish is no JSON object");
  }
  const std::string mode = Member(wanted, "mode").isString() ? wanted["mode"].asString() : "";
  const auto number = [&wanted](const char* member, int greatest) {
    const Json::Value& value = Member(wanted, member);
    return value.isNull()                                                     ? 0
           : value.isInt() && value.asInt() >= 0 && value.asInt() <= greatest ? value.asInt()
                                                                              : -1;
  };
  LinkState state = link_state_;
  state.mode = mode;
  state.delay_ms = mode == "limping" ? number("delay_ms", 60000) : 0;
  state.bytes_per_second = mode == "limping" ? number("bytes_per_second", 1000000000) : 0;
  constexpr const char* kModes[] = {"whole", "cut", "frozen", "limping"};
  if (std::find(std::begin(kModes), std::end(kModes), mode) == std::end(kModes)) {
    return ErrorResponse(400, "the mode is whole, cut, frozen or limping");
  }
  if (state.delay_ms < 0 || state.bytes_per_second < 0) {
    return ErrorResponse(400, "delay_ms is 0 to 60000, bytes_per_second 0 to 1000000000");
  }
  link_->RefuseNew(mode == "cut");
  link_->Freeze(mode == "frozen");
  link_->Limp(milliseconds(state.delay_ms), static_cast<std::size_t>(state.bytes_per_second));
  if (mode == "cut") {
    link_->Cut();
  }
  link_state_ = state;
  desk_.OnLink(link_state_, tarvex::TraceClock_us());
  return JsonResponse(Json::Value(Json::objectValue));
}

}  // namespace console
