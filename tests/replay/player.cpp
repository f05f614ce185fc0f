#include "player.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <json/writer.h>

#include "json_text.h"
#include "transcript.h"

// The program's symbols come before those of the C library, for the plug-in as well.
extern "C" time_t time(time_t* /*result*/) noexcept {
  return static_cast<time_t>(fake::ThePlatform().now_s);
}
/// time() where `long` has 32 bits and the time has 64.
extern "C" std::int64_t __time64(std::int64_t* /*result*/) noexcept {
  return static_cast<std::int64_t>(fake::ThePlatform().now_s);
}

namespace replay {
namespace {

constexpr std::int64_t kSecond_us = 1000000;
// What the last event leads to has such a time to happen.
constexpr std::int64_t kAfterTheEnd_us = 60 * kSecond_us;
constexpr std::size_t kMostInTitle = 200;

/// Tells what is posted.
class TellingEventService : public fake::EventService {
 public:
  explicit TellingEventService(Sink say) : say_(std::move(say)) {}

  void Post(tarvex::MessageHandler* handler, unsigned int id,
            boost::shared_ptr<tarvex::MessageData> data, bool time_sensitive) override {
    say_("posts " + std::to_string(id));
    fake::EventService::Post(handler, id, data, time_sensitive);
  }
  void PostDelayed(int delay_ms, tarvex::MessageHandler* handler, unsigned int id,
                   boost::shared_ptr<tarvex::MessageData> data) override {
    say_("posts " + std::to_string(id) + " after " + std::to_string(delay_ms) + " ms");
    fake::EventService::PostDelayed(delay_ms, handler, id, data);
  }

 private:
  const Sink say_;
};

std::string TimeText(std::int64_t us) {
  std::string part = std::to_string(us % kSecond_us);
  return std::to_string(us / kSecond_us) + "." + std::string(6 - part.size(), '0') + part;
}

std::string Compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

std::vector<std::string> Indented(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  std::istringstream text(Json::writeString(builder, value));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(Escaped(line.substr(0, line.find_last_not_of(' ') + 1)));
  }
  return lines;
}

std::string ShortOf(const std::string& bytes) {
  const bool is_cut = bytes.size() > kMostInTitle;
  return Escaped(is_cut ? bytes.substr(0, kMostInTitle) + "..." : bytes);
}

/// A bus message's body in a title: a line of text, or its size.
std::string TitleOf(const std::string& body) {
  const std::vector<std::string> lines = Shown(body);
  const bool is_line = lines.size() == 1 && lines[0] == Escaped(body);
  return is_line ? ShortOf(body) : std::to_string(body.size()) + " bytes";
}

tarvex::_TimeS Calendar(std::time_t seconds) {
  std::tm utc = {};
  gmtime_r(&seconds, &utc);
  return {utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec};
}

}  // namespace

Player::Player(const capture::Capture& capture, Sink sink)
    : capture_(capture),
      sink_(std::move(sink)),
      events_(new TellingEventService([this](const std::string& text) { Say(text); })) {
  std::FILE* const file = std::tmpfile();
  if (file == nullptr || (printed_ = dup(fileno(file))) < 0 ||
      dup2(printed_, STDOUT_FILENO) != STDOUT_FILENO) {
    throw std::runtime_error("no temporary file for what the library prints");
  }
  (void)std::fclose(file);
  for (const Json::Value& event : capture.events) {
    if (event["event"] == "bus_request") {
      answers_.push_back({event["us"].asInt64(),
                          event["queue"].asString(),
                          capture::Bytes(event, "body"),
                          {event.isMember("reply") ? 1 : 0, capture::Bytes(event, "reply")}});
    }
  }
  fake::ResetPlatform();
  fake::Platform& platform = fake::ThePlatform();
  platform.sn = capture.header.sn;
  platform.camera = [this](const fake::BusRequest& request) { return OnBusRequest(request); };
  platform.on_log = [this](const fake::LogEntry& entry) { OnLog(entry); };
  SetClock(0);
}

Player::~Player() { close(printed_); }

void Player::Play(const std::string& library) {
  const auto is_database = [](const Json::Value& event) { return event["event"] == "database"; };
  auto event = capture_.events.begin();
  for (; event != capture_.events.end() && is_database(*event); ++event) {
    SetDatabase(*event);
  }
  if (event != capture_.events.end()) {
    RunClockTo((*event)["us"].asInt64());
  }
  Start(library);
  const auto link = std::find_if(capture_.events.begin(), capture_.events.end(),
                                 [](const auto& other) { return other["event"] == "link"; });
  if (link == capture_.events.end() || !(*link)["up"].asBool()) {
    Title("link up, since before the capture");
    LinkUp();
  }
  for (; event != capture_.events.end(); ++event) {
    if ((*event)["event"] != "bus_request") {
      RunClockTo((*event)["us"].asInt64());
      Apply(*event);
    }
  }
  RunClockTo(now_us_ + kAfterTheEnd_us);
  Title("end");
  Call([this] { destroy_(adapter_); });
}

void Player::Start(const std::string& library) {
  Title("start");
  void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw std::runtime_error(dlerror());
  }
  const auto create = reinterpret_cast<decltype(&create_adapter)>(dlsym(handle, "create_adapter"));
  destroy_ = reinterpret_cast<decltype(&destory_adapter)>(dlsym(handle, "destory_adapter"));
  Call([&] { adapter_ = create(events_, 1); });
  if (adapter_ == nullptr) {
    throw std::runtime_error("it makes no adapter");
  }
  adapter_->SignalPushMessage.connect(this, &Player::OnPush);
  Call([this] {
    const int result =
        adapter_->Initialize([this](const std::string& source, const std::string& name) {
          Say("has the picture " + Escaped(source) + " kept as " + Escaped(name));
          return "picture " + source + " as " + name;
        });
    for (const std::string& client : fake::ThePlatform().created) {
      Say("opens " + client);
    }
    Say("returns " + std::to_string(result));
  });
  std::set<std::string> requests;
  Call([&] { adapter_->GetMessageNames(requests, publishes_); });
  for (const std::string& name : requests) {
    Say("serves " + Escaped(name));
  }
  for (const std::string& name : publishes_) {
    Say("can publish " + Escaped(name));
  }
}

// As the reference host does.
void Player::LinkUp() {
  Call([this] { adapter_->OnMQTTConnected(); });
  for (const std::string& name : publishes_) {
    Call([&] {
      if (!adapter_->SubscribeMessage(name)) {
        Say("is not to be subscribed to for " + Escaped(name));
      }
    });
  }
}

void Player::LinkDown() {
  for (const std::string& name : publishes_) {
    Call([&] { adapter_->UnsubscribeMessage(name); });
  }
  Call([this] { adapter_->OnMQTTDisconnected(); });
  unacknowledged_.clear();  // what the broker has not acknowledged by now it never does
}

void Player::Apply(const Json::Value& event) {
  const std::string kind = event["event"].asString();
  if (kind == "database") {
    Title("database " + event["database"].asString() + ", " + event["key"].asString());
    SetDatabase(event);
  } else if (kind == "link") {
    Title(event["up"].asBool() ? "link up" : "link down");
    event["up"].asBool() ? LinkUp() : LinkDown();
  } else if (kind == "message") {
    Deliver(event);
  } else if (kind == "request") {
    Request(event);
  } else if (kind == "confirmed") {
    Confirm(event);
  }
}

void Player::SetDatabase(const Json::Value& event) {
  auto& values = fake::ThePlatform().databases[event["database"].asString()];
  if (event.isMember("value")) {
    values[event["key"].asString()] = capture::Bytes(event, "value");
  } else {
    values.erase(event["key"].asString());
  }
}

void Player::Deliver(const Json::Value& event) {
  const std::string topic = event["topic"].asString();
  const std::string body = capture::Bytes(event, "body");
  Title("message " + topic + ", " + TitleOf(body));
  if (fake::ThePlatform().listened_topics.count(topic) == 0) {
    Say("does not listen to it");
    return;
  }
  Call([&] { fake::ThePlatform().Deliver(topic, body); });
}

void Player::Request(const Json::Value& event) {
  const std::string name = event["name"].asString();
  const std::string version = event["version"].asString();
  const Json::Value payload = capture::Payload(event);
  Title("request " + name + " " + version + " " + ShortOf(Compact(payload)));
  Call([&] {
    Json::Value response;
    const bool is_done = adapter_->RequestMessage(name, payload, version, response);
    Say(is_done ? "returns true" : "returns false");
    if (!response.isNull()) {
      Say("responds");
      SayAll(Indented(response));
    }
  });
}

void Player::Confirm(const Json::Value& event) {
  const auto tag = static_cast<unsigned long long>(event["tag"].asInt64());
  Title("confirmed, tag " + std::to_string(tag));
  int& open = unacknowledged_[tag];
  if (open == 0) {
    Say("has nothing with this tag to be confirmed");
    return;
  }
  --open;
  Call([&] { adapter_->OnMessagePublished(tag); });
}

void Player::RunClockTo(std::int64_t us) {
  const auto due_ms = [this] {
    std::int64_t first_ms = INT64_MAX;
    for (const auto& pending : events_->pending) {
      first_ms = std::min(first_ms, pending.due_ms);
    }
    return first_ms;
  };
  for (std::int64_t next_ms = due_ms(); next_ms <= us / 1000; next_ms = due_ms()) {
    const std::int64_t before_ms = now_us_ / 1000;
    if (next_ms > before_ms) {
      SetClock(next_ms * 1000);
      Say("at " + TimeText(now_us_));
    }
    Call([&] { events_->Tick(static_cast<int>(std::max<std::int64_t>(next_ms - before_ms, 0))); });
  }
  events_->Tick(static_cast<int>(us / 1000 - now_us_ / 1000));
  SetClock(us);
}

void Player::SetClock(std::int64_t us) {
  now_us_ = us;
  const std::int64_t since_1970_s = (capture_.header.start_us + us) / kSecond_us;
  fake::ThePlatform().now_s = static_cast<unsigned long long>(since_1970_s);
  fake::ThePlatform().local_time = Calendar(static_cast<std::time_t>(since_1970_s));
}

void Player::Call(const std::function<void()>& function) {
  try {
    function();
  } catch (const std::exception& error) {
    Say("throws " + Escaped(error.what()));
  } catch (...) {
    Say("throws what is no std::exception");
  }
  SayWhatIsListenedTo();
  SayWhatWasPrinted();
}

void Player::OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
                    unsigned long long tag) {
  ++unacknowledged_[tag];
  Say("publishes " + Escaped(name) + " " + Escaped(version) + ", tag " + std::to_string(tag));
  SayAll(Indented(payload));
}

fake::BusAnswer Player::OnBusRequest(const fake::BusRequest& request) {
  Say("asks " + Escaped(request.queue) + ", waits " + std::to_string(request.timeout_ms) + " ms");
  SayAll(Shown(request.data));
  const char* note = "";
  Answer* found = Find(request.queue, &request.data);
  if (found == nullptr) {
    found = Find(request.queue, nullptr);
    note = ", where something else was asked";
  }
  if (found == nullptr) {
    Say("is not answered: the capture has no request to this queue");
    return {0, ""};
  }
  found->is_used = true;
  Say((found->answer.result > 0 ? "is answered as at " : "is not answered, as at ") +
      TimeText(found->us) + note);
  return found->answer;
}

/// The next one that was not used; where there is none, the one that is nearest in time.
/// @param body null: any.
Player::Answer* Player::Find(const std::string& queue, const std::string* body) {
  Answer* nearest = nullptr;
  for (Answer& answer : answers_) {
    if (answer.queue != queue || (body != nullptr && answer.body != *body)) {
      continue;
    }
    if (answer.us >= now_us_ && !answer.is_used) {
      return &answer;
    }
    if (nearest == nullptr || std::abs(answer.us - now_us_) <= std::abs(nearest->us - now_us_)) {
      nearest = &answer;
    }
  }
  return nearest;
}

void Player::OnLog(const fake::LogEntry& entry) {
  const std::vector<std::string> lines = Lines(entry.text);
  Say("logs " + std::to_string(entry.priority) + " " + Escaped(entry.source) + ": " +
      (lines.empty() ? "" : lines.front()));
  SayAll({lines.begin() + (lines.empty() ? 0 : 1), lines.end()});
}

void Player::Title(const std::string& text) { sink_("== " + TimeText(now_us_) + " " + text); }

void Player::Say(const std::string& text) {
  SayWhatWasPrinted();
  sink_("  " + text);
}

void Player::SayAll(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    sink_("    " + line);
  }
}

void Player::SayWhatWasPrinted() {
  (void)std::fflush(stdout);
  std::string text;
  char buffer[4096];
  for (ssize_t length = 0;
       (length = pread(printed_, buffer, sizeof(buffer), printed_told_bytes_)) > 0;
       printed_told_bytes_ += length) {
    text.append(buffer, static_cast<std::size_t>(length));
  }
  if (!text.empty()) {
    sink_("  prints");
    SayAll(Lines(text));
  }
}

void Player::SayWhatIsListenedTo() {
  const std::set<std::string>& now = fake::ThePlatform().listened_topics;
  for (const std::string& topic : now) {
    if (listened_.count(topic) == 0) {
      Say("listens to " + Escaped(topic));
    }
  }
  for (const std::string& topic : listened_) {
    if (now.count(topic) == 0) {
      Say("listens no more to " + Escaped(topic));
    }
  }
  listened_ = now;
}

}  // namespace replay
