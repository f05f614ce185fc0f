#include "platform/kv_watch.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include <boost/algorithm/string/split.hpp>

#include "platform/kv_bucket.h"
#include "platform/log.h"
#include "platform/nats_names.h"

namespace tarvex {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// How long the thread sleeps at a time: it notices a new connection after that.
constexpr milliseconds kNap{200};

/// After so long without a change the server is asked whether a consumer is still there.
constexpr milliseconds kQuiet{3000};

/// Between two attempts to follow a bucket: doubled each time up to the second.
constexpr milliseconds kShortestPause{20};
constexpr milliseconds kLongestPause{1000};

/// What a message of a consumer tells.
struct Arrived {
  std::string consumer;
  bool is_last = false;  // nothing more is under way
};

/// From where an acknowledgement would go: "$JS.ACK.STREAM.CONSUMER.A.B.C.D.PENDING", newer
/// servers with "DOMAIN.ACCOUNT." before the stream, and more at the end.
/// @return false for a message that is of no consumer.
bool ReadOrigin(natsMsg* message, Arrived* arrived) {
  const char* reply = natsMsg_GetReply(message);
  std::vector<std::string> words;
  boost::split(words, std::string(reply == nullptr ? "" : reply),
               [](char character) { return character == '.'; });
  constexpr std::size_t kShort = 9;
  if (words.size() < kShort || words[0] != "$JS" || words[1] != "ACK") {
    return false;
  }
  const std::size_t stream = words.size() == kShort ? 2 : 4;
  if (words.size() < stream + 7) {
    return false;
  }
  arrived->consumer = words[stream + 1];
  arrived->is_last = words[stream + 6] == "0";
  return true;
}

KvChange ReadKvChange(natsMsg* message, const std::string& bucket) {
  const char* operation = nullptr;  // of a removal only: "DEL" or "PURGE"
  KvChange change;
  change.is_removal = natsMsgHeader_Get(message, "KV-Operation", &operation) == NATS_OK;
  change.key = std::string(natsMsg_GetSubject(message)).substr(KvSubjectPrefix(bucket).size());
  change.value.assign(natsMsg_GetData(message),
                      static_cast<std::size_t>(natsMsg_GetDataLength(message)));
  return change;
}

/// After so many failures in a row.
milliseconds PauseAfter(int failures) {
  return std::min(kLongestPause, kShortestPause * (1 << std::min(failures, 6)));
}

bool IsLoss(natsStatus status) {
  return status == NATS_CONNECTION_DISCONNECTED || status == NATS_CONNECTION_CLOSED;
}

}  // namespace

std::shared_ptr<KvWatch> KvWatch::Of(const SocketAddress& address) {
  static std::mutex mutex;
  static std::map<std::string, std::weak_ptr<KvWatch>> watches;
  const std::lock_guard<std::mutex> lock(mutex);
  const std::string server = ServerText(address) + " at " + EffectiveServersText(address);
  if (auto present = watches[server].lock()) {
    return present;
  }
  std::shared_ptr<KvWatch> watch(new KvWatch);
  watch->link_ = NatsLink::Connect(address, "databases", {{}, nullptr, true});
  if (!watch->link_) {
    return nullptr;
  }
  const natsStatus status = watch->Open();
  if (status != NATS_OK) {
    SYS_LOG(kLogError, "databases: %s", natsStatus_GetText(status));
    return nullptr;
  }
  watch->thread_ = std::thread([self = watch.get()] { self->Run(); });
  watches[server] = watch;
  return watch;
}

natsStatus KvWatch::Open() {
  natsInbox* inbox = nullptr;
  natsStatus status = natsInbox_Create(&inbox);
  if (status != NATS_OK) {
    return status;
  }
  inbox_ = inbox;
  natsInbox_Destroy(inbox);
  natsSubscription* created = nullptr;
  status = natsConnection_SubscribeSync(&created, link_->get(), inbox_.c_str());
  subscription_.reset(created);
  if (status == NATS_OK) {
    jet_stream_ = OpenJetStream(link_->get(), &status);
  }
  return status;
}

KvWatch::~KvWatch() {
  if (!link_) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_stopping_ = true;
  }
  changed_.notify_all();
  link_->Close();  // wakes the thread, and is needed before the subscription's end
  if (thread_.joinable()) {
    thread_.join();
  }
}

std::shared_ptr<const KvCopy> KvWatch::Follow(const std::string& bucket) {
  std::shared_ptr<KvCopy> copy;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    copy = copies_[bucket].lock();
    if (copy) {
      return copy;
    }
    copy = std::make_shared<KvCopy>();
    copies_[bucket] = copy;
  }
  natsConnection_Publish(link_->get(), inbox_.c_str(), nullptr, 0);
  return copy;
}

void KvWatch::Run() {
  while (!IsStopping()) {
    if (!link_->IsConnected()) {
      Nap();
      continue;
    }
    LookForCopies();
    for (auto& [bucket, following] : following_) {
      LookAt(bucket, &following);
    }
    TakeMessages();
  }
}

bool KvWatch::IsStopping() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_stopping_;
}

void KvWatch::Nap() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, kNap, [this] { return is_stopping_; });
}

/// Begins with the copies that are new, and ends with those that nobody has any more.
void KvWatch::LookForCopies() {
  std::map<std::string, Following> ended;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto one = following_.begin(); one != following_.end();) {
      const auto next = std::next(one);
      if (one->second.copy.use_count() == 1) {
        copies_.erase(one->first);
        ended.insert(following_.extract(one));
      }
      one = next;
    }
    for (const auto& [bucket, weak] : copies_) {
      if (const std::shared_ptr<KvCopy> copy = weak.lock()) {
        following_[bucket].copy = copy;
      }
    }
  }
  for (const auto& [bucket, following] : ended) {
    End(bucket, following);
  }
}

void KvWatch::LookAt(const std::string& bucket, Following* following) {
  const auto now = steady_clock::now();
  if (link_->connections() != following->connections) {
    following->connections = link_->connections();
    End(bucket, *following);  // to this connection the server would still send what it finds
    following->consumer.clear();
    following->next_attempt = now;
  }
  if (!following->consumer.empty() && now - following->quiet_since >= kQuiet) {
    following->quiet_since = now;
    if (!IsThere(bucket, *following)) {
      following->consumer.clear();
      following->next_attempt = now;
    }
  }
  if (!following->consumer.empty() || now < following->next_attempt) {
    return;
  }
  const natsStatus status = Begin(bucket, following);
  if (status == NATS_OK) {
    following->failures = 0;
    return;
  }
  if (!IsLoss(status) && following->failures == 0) {
    SYS_LOG(kLogError, "database %s: %s", bucket.c_str(), natsStatus_GetText(status));
  }
  following->failures += IsLoss(status) ? 0 : 1;
  following->next_attempt = steady_clock::now() + PauseAfter(following->failures);
}

natsStatus KvWatch::Begin(const std::string& bucket, Following* following) {
  natsStatus status = NATS_OK;
  OpenBucket(jet_stream_.get(), bucket, &status);
  if (status != NATS_OK) {
    return status;
  }
  std::uint64_t first_count = 0;
  following->consumer = ConsumeBucket(jet_stream_.get(), bucket, inbox_, &first_count, &status);
  following->quiet_since = steady_clock::now();
  following->first_values.clear();
  following->is_complete = first_count == 0;
  if (status == NATS_OK && following->is_complete) {
    following->copy->Replace({});
  }
  return status;
}

bool KvWatch::IsThere(const std::string& bucket, const Following& following) const {
  jsConsumerInfo* read = nullptr;
  const natsStatus status = js_GetConsumerInfo(&read, jet_stream_.get(), KvStream(bucket).c_str(),
                                               following.consumer.c_str(), nullptr, nullptr);
  const NatsConsumerInfo info(read);
  return status == NATS_OK;
}

void KvWatch::End(const std::string& bucket, const Following& following) const {
  if (!following.consumer.empty()) {
    js_DeleteConsumer(jet_stream_.get(), KvStream(bucket).c_str(), following.consumer.c_str(),
                      nullptr, nullptr);
  }
}

KvWatch::TimePoint KvWatch::NextLook() const {
  TimePoint next = steady_clock::now() + kNap;
  for (const auto& [bucket, following] : following_) {
    if (following.consumer.empty()) {
      next = std::min(next, following.next_attempt);
    }
  }
  return next;
}

/// Takes what comes, until it is time to look at the buckets again.
void KvWatch::TakeMessages() {
  const TimePoint until = NextLook();
  for (auto left = until - steady_clock::now(); left > left.zero();
       left = until - steady_clock::now()) {
    natsMsg* received = nullptr;
    const natsStatus status = natsSubscription_NextMsg(
        &received, subscription_.get(), std::chrono::ceil<milliseconds>(left).count());
    const NatsMessage message(received);
    if (status != NATS_OK) {
      if (status == NATS_SLOW_CONSUMER) {  // some of what came was dropped
        std::for_each(following_.begin(), following_.end(),
                      [](auto& following) { following.second.consumer.clear(); });
      }
      return;
    }
    if (inbox_ == natsMsg_GetSubject(received)) {
      return;
    }
    TakeChange(received);
  }
}

void KvWatch::TakeChange(natsMsg* message) {
  Arrived arrived;
  if (!ReadOrigin(message, &arrived)) {
    return;
  }
  const auto found = std::find_if(
      following_.begin(), following_.end(),
      [&arrived](const auto& following) { return following.second.consumer == arrived.consumer; });
  if (found == following_.end()) {
    return;  // of one that has ended
  }
  Following& following = found->second;
  following.quiet_since = steady_clock::now();
  const KvChange change = ReadKvChange(message, found->first);
  if (following.is_complete) {
    following.copy->Apply(change);
    return;
  }
  KvCopy::Apply(change, &following.first_values);
  if (arrived.is_last) {
    following.is_complete = true;
    following.copy->Replace(std::exchange(following.first_values, {}));
  }
}

}  // namespace tarvex
