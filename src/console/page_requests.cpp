// What the page asks of the console.
#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "console/console.h"
#include "console/http/files.h"
#include "json_text.h"
#include "platform/json_member.h"
#include "platform/trace.h"

namespace console {
namespace {

using std::chrono::milliseconds;
using tarvex::Member;

constexpr milliseconds kCommandTimeout{5000};
constexpr int kMaxDelay_ms = 60000;
constexpr int kMaxRate = 1000000000;

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

/// A number from 0 to `greatest`; 0 where it is not there, -1 where it is something else.
int NumberOf(const Json::Value& object, const char* member, int greatest) {
  const Json::Value& value = Member(object, member);
  if (value.isNull()) {
    return 0;
  }
  return value.isInt() && value.asInt() >= 0 && value.asInt() <= greatest ? value.asInt() : -1;
}

}  // namespace

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
    response.body = contract_;
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
              if (!error.empty()) {
                reply(ErrorResponse(502, error));
              } else if (!is_scene || !answer.isMember("jpeg")) {
                reply(JsonResponse(answer));
              } else {
                HttpResponse picture;
                picture.type = "image/jpeg";
                picture.body = tarvex::TracedBytes(answer, "jpeg");
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
  const std::size_t size = is_of_camera ? parts.size() : 0;
  if (is_of_camera && !desk_.Knows(parts[2])) {
    reply(ErrorResponse(404, "there is no camera " + parts[2]));
  } else if (size == 5 && parts[3] == "requests") {
    const auto name = Decoded(parts[4]);
    reply(name && CanBeInTopic(*name)
              ? SendRequest(parts[2], *name, request.body)
              : ErrorResponse(400, "a request's name is not empty and has no + or #"));
  } else if (size == 4 && parts[3] == "world") {
    ChangeWorld(parts[2], request.body, reply);
  } else if (size == 4 && parts[3] == "restart-agent") {
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
  const std::string problem = broker_->SendRequest(request.topic, text, request.correlation);
  if (!problem.empty()) {
    return ErrorResponse(503, problem);
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
  LinkState state = link_state_;
  state.mode = mode;
  state.delay_ms = mode == "limping" ? NumberOf(wanted, "delay_ms", kMaxDelay_ms) : 0;
  state.bytes_per_second = mode == "limping" ? NumberOf(wanted, "bytes_per_second", kMaxRate) : 0;
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
