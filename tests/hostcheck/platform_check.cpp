#include "platform_check.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <boost/make_shared.hpp>

#include "cache/kvdb_client.h"
#include "checks.h"
#include "json_text.h"
#include "tarvex/base64.h"
#include "wire.h"

namespace hostcheck {
namespace {

// Ids of the posted messages, by what they are for.
constexpr unsigned kFirst = 199511;  // kFirst to kFirst + 4: posted one after the other
constexpr unsigned kUrgentFirst = 199521;
constexpr unsigned kUrgentSecond = 199522;
constexpr unsigned kLate = 199531;       // after 60 ms
constexpr unsigned kSoonFirst = 199532;  // after 30 ms, as the next
constexpr unsigned kSoonSecond = 199533;
constexpr unsigned kAtOnce = 199534;  // "after" -1 ms
constexpr unsigned kCleared = 199541;
constexpr unsigned kClearedDelayed = 199542;
constexpr unsigned kNotCleared = 199543;
constexpr unsigned kEnd = 199551;
constexpr unsigned kIds[] = {199511,       199512,        199513,          199514,      199515,
                             kUrgentFirst, kUrgentSecond, kLate,           kSoonFirst,  kSoonSecond,
                             kAtOnce,      kCleared,      kClearedDelayed, kNotCleared, kEnd};
constexpr int kUntilEnd_ms = 200;
constexpr int kRequest_ms = 100;

std::string Listed(const std::vector<unsigned>& ids) {
  std::string text;
  for (const unsigned id : ids) {
    text += (text.empty() ? "" : " ") + std::to_string(id);
  }
  return text;
}

}  // namespace

RequestOutcome AskInVain(tarvex::DpClient* bus, int timeout_ms) {
  static constexpr char kRequest[] = R"({"type":"hostcheck"})";
  std::string reply = "untouched";
  RequestOutcome outcome;
  const auto begin = std::chrono::steady_clock::now();
  outcome.result =
      bus->SendRequest(kSilentQueue, 0, kRequest, sizeof(kRequest) - 1, &reply, timeout_ms);
  const auto time = std::chrono::steady_clock::now() - begin;
  outcome.ms =
      static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
  outcome.reply_untouched = reply == "untouched";
  return outcome;
}

/// What a message carries: counted for as long as somebody holds it.
class PlatformCheck::Data : public tarvex::MessageData {
 public:
  explicit Data(std::shared_ptr<int> alive) : alive_(std::move(alive)) {}

 private:
  std::shared_ptr<int> alive_;
};

PlatformCheck::PlatformCheck(boost::shared_ptr<tarvex::EventService> events,
                             boost::shared_ptr<tarvex::DpClient> bus,
                             std::function<void(const Verdicts&)> on_end)
    : events_(std::move(events)), bus_(std::move(bus)), on_end_(std::move(on_end)) {}

PlatformCheck::~PlatformCheck() {
  for (const unsigned id : kIds) {
    events_->Clear(this, id, nullptr);
  }
}

void PlatformCheck::Begin() {
  alive_ = std::make_shared<int>(0);
  PostInOrder();
  PostDelayed();
  PostAndClear();
  events_->PostDelayed(kUntilEnd_ms, this, kEnd, nullptr);
}

boost::shared_ptr<PlatformCheck::Data> PlatformCheck::NewData() {
  return boost::make_shared<Data>(alive_);
}

void PlatformCheck::PostInOrder() {
  for (unsigned i = 0; i < 3; ++i) {
    events_->Post(this, kFirst + i, NewData(), false);
  }
  std::thread([this] {
    events_->Post(this, kFirst + 3, nullptr, false);
    events_->Post(this, kFirst + 4, nullptr, false);
  }).join();
  events_->Post(this, kUrgentFirst, nullptr, true);
  events_->Post(this, kUrgentSecond, nullptr, true);
}

void PlatformCheck::PostDelayed() {
  events_->PostDelayed(60, this, kLate, nullptr);
  events_->PostDelayed(30, this, kSoonFirst, nullptr);
  events_->PostDelayed(30, this, kSoonSecond, nullptr);
  events_->PostDelayed(-1, this, kAtOnce, nullptr);
}

void PlatformCheck::PostAndClear() {
  const auto marker = std::make_shared<int>(0);
  events_->Post(this, kNotCleared, nullptr, false);
  events_->Post(this, kCleared, boost::make_shared<Data>(marker), false);
  events_->PostDelayed(10, this, kCleared, boost::make_shared<Data>(marker));
  events_->Clear(this, kCleared, nullptr);
  if (marker.use_count() != 1) {
    wrong_clear_ = "what was cleared is still held when Clear returns";
  }
  std::list<tarvex::Message> removed;
  events_->Post(this, kClearedDelayed, boost::make_shared<Data>(marker), false);
  events_->PostDelayed(10, this, kClearedDelayed, boost::make_shared<Data>(marker));
  events_->Clear(this, kClearedDelayed, &removed);
  const bool is_complete =
      removed.size() == 2 &&
      std::all_of(removed.begin(), removed.end(), [this](const tarvex::Message& message) {
        return message.handler == this && message.message_id == kClearedDelayed && message.data;
      });
  if (!is_complete) {
    wrong_removed_ = "2 messages were pending, " + std::to_string(removed.size()) +
                     " were handed over as they were posted";
  }
}

void PlatformCheck::OnMessage(tarvex::Message* message) {
  if (std::this_thread::get_id() != thread_) {
    wrong_thread_ = "message " + std::to_string(message->message_id) + " came on another thread";
  }
  delivered_.push_back(message->message_id);
  // Data of the first three: so many may still be held, the one that is being delivered included.
  if (message->message_id == kFirst + 3 && alive_.use_count() != 1) {
    kept_data_ = "what a message carried is still held when the next one is delivered";
  }
  if (message->message_id == kEnd) {
    End();
  }
}

void PlatformCheck::Judge(const char* check, const std::string& broken, bool is_exercised) {
  verdicts_.push_back({check, broken, is_exercised});
}

/// Of the messages that were wanted, whatever came between them.
void PlatformCheck::JudgeOrder(const char* check, const std::vector<unsigned>& wanted) {
  std::vector<unsigned> came;
  for (const unsigned id : delivered_) {
    if (std::find(wanted.begin(), wanted.end(), id) != wanted.end()) {
      came.push_back(id);
    }
  }
  Judge(check, came == wanted ? "" : "wanted " + Listed(wanted) + ", came " + Listed(came));
}

void PlatformCheck::End() {
  JudgeOrder(kEventsInOrder, {kFirst, kFirst + 1, kFirst + 2, kFirst + 3, kFirst + 4});
  JudgeOrder(kEventsUrgent, {kUrgentFirst, kUrgentSecond});
  JudgeOrder(kEventsDelayed, {kAtOnce, kSoonFirst, kSoonSecond, kLate});
  for (const unsigned id : delivered_) {
    if (id == kCleared || id == kClearedDelayed) {
      wrong_clear_ = "message " + std::to_string(id) + " was delivered after it was cleared";
    }
  }
  if (std::count(delivered_.begin(), delivered_.end(), kNotCleared) != 1) {
    wrong_clear_ = "a message of another id was cleared with it";
  }
  Judge(kEventsCleared, wrong_clear_);
  Judge(kEventsRemoved, wrong_removed_);
  Judge(kEventsReleased, kept_data_);
  Judge(kEventsThread, wrong_thread_);
  JudgeBus();
  JudgeDatabases();
  JudgeTexts();
  on_end_(verdicts_);
}

void PlatformCheck::JudgeBus() {
  if (!bus_) {
    Judge(kBusReply, "", false);
    Judge(kBusTimeout, "", false);
    return;
  }
  const RequestOutcome outcome = AskInVain(bus_.get(), kRequest_ms);
  const bool is_unanswered = outcome.result <= 0;
  Judge(kBusReply, outcome.reply_untouched ? "" : "the reply was changed", is_unanswered);
  // A bus that knows that nobody is there need not wait.
  const bool is_refused = outcome.ms < kRequest_ms / 10;
  Judge(kBusTimeout,
        outcome.ms >= kRequest_ms ? ""
                                  : "a request with " + std::to_string(kRequest_ms) +
                                        " ms ended after " + std::to_string(outcome.ms),
        is_unanswered && !is_refused);
}

void PlatformCheck::JudgeDatabases() {
  const auto database =
      cache::KvdbClient::CreateKvdbNetClient("skvdb", tarvex::SocketAddress("127.0.0.1", 6102));
  std::string value = "untouched";
  const bool is_read = database && database->GetValue("hostcheck_no_such_key", &value) != 0;
  std::string broken;
  if (is_read) {
    broken = "a key that is not there was read";
  } else if (value != "untouched") {
    broken = "the value was changed";
  }
  Judge(kDatabaseMissingKey, broken, static_cast<bool>(database));
}

void PlatformCheck::JudgeTexts() {
  constexpr int kFlags = tarvex::Base64::kParseStrict | tarvex::Base64::kPaddingRequired |
                         tarvex::Base64::kEndAtBuffer;
  std::string broken;
  std::string bytes;
  for (int i = 0; i < 300; ++i) {
    const std::string text = tarvex::Base64::Encode(bytes);
    std::string back;
    if (!tarvex::Base64::DecodeFromArray(text.data(), text.size(), kFlags, &back, nullptr) ||
        back != bytes) {
      broken = std::to_string(i) + " bytes do not come back";
    }
    bytes += static_cast<char>(i);
  }
  Judge(kBase64RoundTrip, broken);
  Json::Value value;
  std::string text;
  const bool is_read = Json::String2Json(R"({ "a" : [ 1, "b" ] })", value) &&
                       Json::Json2String(value, text) && text == R"({"a":[1,"b"]})";
  const bool is_refused = !Json::String2Json(R"({"a":)", value);
  Judge(kJsonText, !is_read      ? "it is not as it was, or not compact: " + text
                   : !is_refused ? "text that is no JSON was taken for some"
                                 : "");
}

}  // namespace hostcheck
