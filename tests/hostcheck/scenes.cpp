#include "scenes.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <regex>
#include <utility>

#include "checks.h"
#include "wire.h"

namespace hostcheck {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kTurn{5};  // between two looks at a condition
constexpr int kQuickLosses = 5;
constexpr int kBurst = 5;

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

/// Whatever else a host may have made of a payload.
std::string MarkIn(const std::string& text) {
  static const std::regex pattern(kMarkPattern);
  std::smatch found;
  return std::regex_search(text, found, pattern) ? found.str() : "";
}

}  // namespace

Scenes::Scenes(SceneOptions options)
    : options_(std::move(options)),
      ledger_([this] {
        char text[32];
        const std::chrono::duration<double> time = steady_clock::now() - begin_;
        snprintf(text, sizeof(text), "%.3f s", time.count());
        return std::string(text);
      }),
      broker_(&context_, options_.listen,
              [this](const Broker::Message& message) { OnMessage(message); }),
      plugin_(&context_, options_.listen, [this](const Json::Value& event) { OnEvent(event); }) {}

std::string Scenes::broker_address() const {
  return options_.listen + ":" + std::to_string(broker_.port());
}

std::string Scenes::plugin_address() const {
  return options_.listen + ":" + std::to_string(plugin_.port());
}

void Scenes::Play(ChildProcess* host) {
  host_ = host;
  if (Start()) {
    for (const Scene scene :
         {&Scenes::OneResult, &Scenes::Burst, &Scenes::Request, &Scenes::Refusal,
          &Scenes::Redelivery, &Scenes::EmptiedQueue, &Scenes::LostLink, &Scenes::QuickLosses,
          &Scenes::BlockedThread, &Scenes::NoPublication, &Scenes::Platform}) {
      if (!IsReady()) {
        break;
      }
      (this->*scene)();
    }
  }
  End();
  for (const Check& check : kChecks) {
    ledger_.Skipped(check.name, ended_early_);
  }
}

bool Scenes::Await(const Condition& condition) {
  const auto deadline = steady_clock::now() + options_.patience;
  while (!condition()) {
    if (steady_clock::now() >= deadline) {
      return false;
    }
    context_.run_one_for(kTurn);
  }
  return true;
}

void Scenes::BeQuiet() {
  const auto end = steady_clock::now() + options_.quiet;
  while (steady_clock::now() < end) {
    context_.run_one_until(end);
  }
}

bool Scenes::Expect(const char* check, const std::string& what, const Condition& condition) {
  if (!Await(condition)) {
    ledger_.Broken(check,
                   what + ": not within " + std::to_string(options_.patience.count()) + " ms");
    return false;
  }
  ledger_.Exercised(check);
  return true;
}

bool Scenes::IsLinkUp() const {
  return ledger_.is_connected() && ledger_.subscribed().size() == std::size(kPublishes);
}

// Until nothing more comes of what was before.
bool Scenes::IsReady() {
  broker_.LetIn(true);
  holds_answers_ = false;
  const bool is_ready = Await([this] {
    if (!host_->IsRunning()) {
      return true;
    }
    AnswerAll();
    const std::size_t results = ledger_.results().size();
    const int publications = ledger_.Count("publishes");
    BeQuiet();
    return IsLinkUp() && results == ledger_.results().size() &&
           publications == ledger_.Count("publishes");
  });
  if (!is_ready || !host_->IsRunning()) {
    ended_early_ =
        is_ready ? "the host had ended" : "the host was not connected and subscribed again";
    ended_early_ += ", so the run went no further";
  }
  results_seen_ = ledger_.results().size();
  return ended_early_.empty();
}

void Scenes::OnEvent(const Json::Value& event) {
  ledger_.OnConnection(broker_.connections());
  ledger_.OnEvent(event);
  const auto early = early_.find(event["mark"].asString());
  if (early != early_.end()) {
    const Broker::Message message = early->second;
    early_.erase(early);
    OnMessage(message);
  }
}

// What the plug-in tells before it publishes comes on another connection, and may be read later.
void Scenes::OnMessage(const Broker::Message& message) {
  const std::string mark = MarkIn(message.payload);
  if (mark.empty()) {
    broker_.Answer(message, false);
    return;
  }
  if (!ledger_.Knows(mark)) {
    early_[mark] = message;
    return;
  }
  ledger_.OnArrived(mark, message.connection);
  unanswered_[mark] = message;
  if (!holds_answers_) {
    Answer(mark);
  }
}

void Scenes::Answer(const std::string& mark, bool is_refused) {
  const auto found = unanswered_.find(mark);
  if (found != unanswered_.end()) {
    // A message without an acknowledgement has none, whatever a host takes for one.
    if (found->second.qos > 0 && !found->second.session.expired()) {
      ledger_.OnAnswered(mark, is_refused);
      broker_.Answer(found->second, is_refused);
    }
    unanswered_.erase(found);
  }
}

void Scenes::AnswerAll() {
  while (!unanswered_.empty()) {
    Answer(std::string(unanswered_.begin()->first));
  }
}

bool Scenes::HasArrived(const std::string& mark) const {
  return !mark.empty() && ledger_.publication(mark).arrivals > 0;
}

bool Scenes::IsConfirmed(const std::string& mark) const {
  return !mark.empty() && ledger_.publication(mark).is_confirmed;
}

void Scenes::Do(const char* what, Json::Value command) {
  command["do"] = what;
  plugin_.Do(command);
}

void Scenes::Recognise(int count) {
  ledger_.Note("a result on the bus");
  options_.recognise(count);
}

std::string Scenes::NextResult() {
  if (!Await([this] { return ledger_.results().size() > results_seen_; })) {
    return "";
  }
  const unsigned plate_id = ledger_.results()[results_seen_++];
  const auto mark = [this, plate_id] { return ledger_.MarkOf(kLiveTag, plate_id); };
  return Await([&] { return HasArrived(mark()); }) ? mark() : "";
}

std::string Scenes::Redeliver(unsigned plate_id) {
  const int before = ledger_.Count("publishes");
  Json::Value command;
  command["name"] = "ivs_result";
  command["tag"] = Json::UInt64{kRedeliveredTag};
  command["plate_id"] = plate_id;
  Do("publish", command);
  Await([&] { return ledger_.Count("publishes") > before; });
  return ledger_.MarkOf(kRedeliveredTag, plate_id);
}

void Scenes::AskCloud(const std::string& name, const std::string& body) {
  const std::string payload = R"({"type":")" + name + R"(","body":)" + body + "}";
  ledger_.Note("the request " + name + " at the broker");
  broker_.Publish(Replaced(options_.request_topic, "{name}", name),
                  Replaced(options_.request_body, "{payload}", payload));
}

bool Scenes::Start() {
  const bool is_created = Expect(kCallOrder, "the host makes an adapter of this plug-in", [this] {
    return ledger_.Count("create_adapter") > 0 || !host_->IsRunning();
  });
  Await([this] { return ledger_.Count("GetMessageNames") > 0 || !host_->IsRunning(); });
  if (!is_created || !host_->IsRunning()) {
    ledger_.Broken(kCallOrder, "the host ended before it had set up an adapter");
    ended_early_ = "there was no adapter";
    return false;
  }
  Expect(kConnectionTold, "OnMQTTConnected with the link up",
         [this] { return ledger_.is_connected(); });
  Expect(kSubscribedWithLink, "every published name subscribed with the link up",
         [this] { return IsLinkUp(); });
  Expect(kSignalConnected,
         "the publication within SubscribeMessage(\"offline_record\") at the broker",
         [this] { return HasArrived(ledger_.first_mark()); });
  return true;
}

void Scenes::OneResult() {
  Recognise(1);
  const std::string mark = NextResult();
  if (mark.empty()) {
    ended_early_ = "no result on the bus reached the broker";
    ledger_.Broken(kConfirmed, "a result on the bus is handed over and published: not within " +
                                   std::to_string(options_.patience.count()) + " ms");
    return;
  }
  Expect(kConfirmed, "OnMessagePublished(11) after the broker's acknowledgement",
         [&] { return IsConfirmed(mark); });
}

void Scenes::Burst() {
  holds_answers_ = true;
  const std::size_t before = ledger_.results().size();
  Recognise(kBurst);
  if (NextResult().empty()) {
    return;
  }
  BeQuiet();
  ledger_.Exercised(kPositiveAnswer);
  ledger_.Exercised(kOneAtATime);
  holds_answers_ = false;
  AnswerAll();
  // How many may wait is the host's affair; what has no room stays in the camera's store.
  IsReady();
  ledger_.Exercised(kConfirmedOnce);
  if (ledger_.results().size() - before > 1) {
    ledger_.Exercised(kInOrder);
  } else {
    ledger_.Skipped(kInOrder, "the host keeps no result waiting");
  }
}

// The last with results: a host that does not release one has them stop for good.
void Scenes::NoPublication() {
  const int done = ledger_.Count("done");
  Do("swallow");
  Await([&] { return ledger_.Count("done") > done; });
  Recognise(1);
  const std::size_t before = ledger_.results().size();
  Await([&] { return ledger_.results().size() > before; });
  BeQuiet();
  Recognise(1);
  Expect(kReleased, "the result after one that caused no publication is handed over",
         [&] { return ledger_.results().size() > before + 1; });
}

void Scenes::Request() {
  if (options_.request_topic.empty()) {
    ledger_.Skipped(kRequestArguments, "no --request-topic was given");
    ledger_.Skipped(kEmptiedWithheld, "no --request-topic was given");
    return;
  }
  const int before = ledger_.Count("RequestMessage");
  AskCloud("get_sn", R"({"depth":{"list":[1,"two"]}})");
  Expect(kRequestArguments, "a request at the broker reaches RequestMessage",
         [&] { return ledger_.Count("RequestMessage") > before; });
}

void Scenes::Refusal() {
  if (!broker_.CanRefuse()) {
    return;  // before MQTT 5 a broker cannot
  }
  holds_answers_ = true;
  Recognise(1);
  Answer(NextResult(), true);
  BeQuiet();
  holds_answers_ = false;
  Recognise(1);
  Expect(kReleased, "the result after one that the broker refused is handed over",
         [&] { return ledger_.results().size() > results_seen_; });
}

void Scenes::Redelivery() {
  holds_answers_ = true;
  const std::string first = Redeliver(++last_record_);
  if (!Await([&] { return HasArrived(first); })) {
    return;
  }
  Redeliver(++last_record_);
  BeQuiet();
  ledger_.Exercised(kSecondDropped);
  Answer(first);
  BeQuiet();
  ledger_.Exercised(kOtherWithheld);
  AnswerAll();
  const std::string alone = Redeliver(++last_record_);
  Await([&] { return HasArrived(alone); });
  Answer(alone);
  Expect(kConfirmed, "OnMessagePublished(16) after the broker's acknowledgement",
         [&] { return IsConfirmed(alone); });
}

void Scenes::EmptiedQueue() {
  if (options_.request_topic.empty()) {
    return;
  }
  for (const char* body : {R"({"enable":"stop"})", R"({"enable":"push","max_count":0})"}) {
    holds_answers_ = true;
    const std::string record = Redeliver(++last_record_);
    const int before = ledger_.Count("RequestMessage");
    const bool has_arrived = Await([&] { return HasArrived(record); });
    AskCloud("check_offline_record", body);
    if (!Await([&] { return ledger_.Count("RequestMessage") > before; }) || !has_arrived) {
      return;
    }
    BeQuiet();
    Answer(record);
    BeQuiet();
    ledger_.Exercised(kEmptiedWithheld);
    IsReady();
  }
}

void Scenes::LostLink() {
  holds_answers_ = true;
  Recognise(1);
  NextResult();
  Redeliver(++last_record_);
  BeQuiet();
  broker_.LetIn(false);
  ledger_.Note("the link was cut");
  broker_.Cut();
  Expect(kConnectionTold, "OnMQTTDisconnected after the link was cut",
         [this] { return !ledger_.is_connected(); });
  Expect(kSubscribedWithLink, "every published name unsubscribed after the link was cut",
         [this] { return ledger_.subscribed().empty(); });
  const std::size_t before = ledger_.results().size();
  Recognise(3);
  BeQuiet();
  if (ledger_.results().size() > before) {
    ledger_.Broken(kSubscribedWithLink, "a result was handed over while the link was down");
  }
  ledger_.Exercised(kBusUnlistened);
  broker_.LetIn(true);
  ledger_.Note("the broker was there again");
  Expect(kSubscribedWithLink, "every published name subscribed with the link up again",
         [this] { return IsLinkUp(); });
  BeQuiet();
  ledger_.Exercised(kNotSentAgain);
  results_seen_ = ledger_.results().size();
  Recognise(1);
  const std::string next = NextResult();
  BeQuiet();
  ledger_.Exercised(kStale);
  Answer(next);
  Expect(kConfirmed, "OnMessagePublished(11) for a result after a loss of the link",
         [&] { return IsConfirmed(next); });
}

// The broker's answer and the end of the link arrive together.
void Scenes::QuickLosses() {
  for (int i = 0; i < kQuickLosses; ++i) {
    holds_answers_ = true;
    Recognise(1);
    const int lost = ledger_.Count("OnMQTTDisconnected");
    Answer(NextResult());
    ledger_.Note("the link was cut right after an acknowledgement");
    broker_.Cut();
    Await([&] { return ledger_.Count("OnMQTTDisconnected") > lost; });
    if (!IsReady()) {
      return;
    }
  }
}

void Scenes::BlockedThread() {
  holds_answers_ = true;
  Recognise(1);
  const std::string before = NextResult();
  const int requests = ledger_.Count("RequestMessage");
  const int waits = ledger_.Count("waits");
  Json::Value command;
  command["ms"] = static_cast<int>(options_.blocked.count());
  Do("wait", command);
  Await([&] { return ledger_.Count("waits") > waits; });
  holds_answers_ = false;
  AnswerAll();
  Recognise(1);
  if (!options_.request_topic.empty()) {
    AskCloud("get_sn", "{}");
  }
  Await([&] { return ledger_.Count("waited") > waits; });
  // The bus may know that nobody serves the queue, and say so at once.
  if (ledger_.last_wait_ms() < options_.blocked.count() * 9 / 10) {
    ledger_.Skipped(kNotReentered, "the bus does not wait for a queue that nobody serves");
    ledger_.Skipped(kNothingLost, "the bus does not wait for a queue that nobody serves");
    return;
  }
  ledger_.Exercised(kNotReentered);
  Expect(kNothingLost, "the acknowledgement that came meanwhile is told",
         [&] { return IsConfirmed(before); });
  Expect(kNothingLost, "the result that came meanwhile is handed over and published",
         [this] { return !NextResult().empty(); });
  if (!options_.request_topic.empty()) {
    Expect(kNothingLost, "the request that came meanwhile is carried out",
           [&] { return ledger_.Count("RequestMessage") > requests; });
  }
}

void Scenes::Platform() {
  const int done = ledger_.Count("done");
  Do("check platform");
  if (!Await([&] { return ledger_.Count("done") > done; })) {
    ledger_.Broken(kEventsDelayed, "a message that was posted with a delay did not come");
  }
}

void Scenes::End() {
  host_->Signal(SIGTERM);
  Await([this] { return !host_->IsRunning(); });
  BeQuiet();
  ledger_.Exercised(kOneThread);
  if (host_->IsRunning()) {
    ledger_.Broken(kDestroyedLast, "the host did not end within " +
                                       std::to_string(options_.patience.count()) +
                                       " ms of SIGTERM");
    host_->Kill();
  } else if (host_->exit_code().value_or(0) < 0) {
    ledger_.Broken(kDestroyedLast,
                   "the host died of signal " + std::to_string(-*host_->exit_code()));
  } else if (ledger_.Count("create_adapter") > 0 && ledger_.Count("destory_adapter") == 0) {
    ledger_.Broken(kDestroyedLast, "the host ended without destory_adapter");
  }
  ledger_.Exercised(kDestroyedLast);
}

}  // namespace hostcheck
