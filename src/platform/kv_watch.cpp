#include "platform/kv_watch.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/log.h"

namespace tarvex {
namespace {

constexpr std::int64_t kRequestTimeout_ms = 1000;
constexpr std::chrono::milliseconds kShortestPause(20);
constexpr std::chrono::milliseconds kLongestPause(1000);

/// After so long without a change, the bucket is looked at whether it is still the same.
constexpr std::int64_t kQuiet_ms = 3000;

std::string ValueOf(kvEntry* entry) {
  return {static_cast<const char*>(kvEntry_Value(entry)),
          static_cast<std::size_t>(kvEntry_ValueLen(entry))};
}

}  // namespace

std::unique_ptr<KvWatch> KvWatch::Begin(const std::string& bucket, const SocketAddress& address) {
  std::unique_ptr<KvWatch> watch(new KvWatch(bucket));
  KvWatch* const self = watch.get();
  watch->link_ = NatsLink::Connect(address, bucket,
                                   [self](bool connected) { self->OnConnectionState(connected); });
  if (!watch->link_) {
    return nullptr;
  }
  watch->thread_ = std::thread([self] { self->Run(); });
  return watch;
}

KvWatch::~KvWatch() {
  if (!thread_.joinable()) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    if (watcher_) {
      kvWatcher_Stop(watcher_.get());
    }
  }
  changed_.notify_all();
  natsConnection_Close(link_->get());  // ends a request that is under way
  thread_.join();
}

void KvWatch::OnConnectionState(bool connected) {
  if (!connected) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    begin_anew_ = true;
    if (watcher_) {
      kvWatcher_Stop(watcher_.get());
    }
  }
  changed_.notify_all();
}

void KvWatch::Run() {
  auto pause = kShortestPause;
  bool failing = false;  // so that a failure is reported once, not at every attempt
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    begin_anew_ = false;
    lock.unlock();
    const natsStatus status = link_->IsConnected() ? Watch() : NATS_CONNECTION_DISCONNECTED;
    lock.lock();
    const bool is_failure =
        !stopping_ && !begin_anew_ && status != NATS_OK && status != NATS_CONNECTION_DISCONNECTED;
    if (is_failure && !failing) {
      PLATFORM_LOG(kLogError, "database %s: %s", bucket_.c_str(), natsStatus_GetText(status));
    }
    failing = is_failure;
    pause = is_failure ? std::min(pause * 2, kLongestPause) : kShortestPause;
    changed_.wait_for(lock, is_failure ? pause : kLongestPause,
                      [this] { return stopping_ || begin_anew_; });
  }
}

/// Watches for as long as the connection and the bucket last.
natsStatus KvWatch::Watch() {
  natsStatus status = NATS_OK;
  const NatsJetStream jet_stream = OpenJetStream(&status);
  if (status != NATS_OK) {
    return status;
  }
  const NatsStore store = OpenBucket(jet_stream.get(), &status);
  const std::int64_t created_ns = status == NATS_OK ? CreationTime(jet_stream.get(), &status) : 0;
  if (status != NATS_OK) {
    return status;
  }
  kvWatcher* created = nullptr;
  status = kvStore_WatchAll(&created, store.get(), nullptr);
  NatsWatcher watcher(created);
  if (status != NATS_OK) {
    return status;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ || begin_anew_) {
      return NATS_OK;
    }
    watcher_ = std::move(watcher);
  }
  status = FollowChanges(created, jet_stream.get(), created_ns);
  const std::lock_guard<std::mutex> lock(mutex_);
  watcher_.reset();
  return status;
}

NatsJetStream KvWatch::OpenJetStream(natsStatus* status) const {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kRequestTimeout_ms;
  jsCtx* created = nullptr;
  *status = natsConnection_JetStream(&created, link_->get(), &options);
  return NatsJetStream(created);
}

NatsStore KvWatch::OpenBucket(jsCtx* jet_stream, natsStatus* status) const {
  kvStore* opened = nullptr;
  *status = js_KeyValue(&opened, jet_stream, bucket_.c_str());
  if (*status == NATS_NOT_FOUND) {
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = bucket_.c_str();
    config.History = 1;
    config.StorageType = js_FileStorage;
    *status = js_CreateKeyValue(&opened, jet_stream, &config);
  }
  return NatsStore(opened);
}

/// When the bucket was created: tells it from a later one of the same name.
std::int64_t KvWatch::CreationTime(jsCtx* jet_stream, natsStatus* status) const {
  jsStreamInfo* read = nullptr;
  *status = js_GetStreamInfo(&read, jet_stream, ("KV_" + bucket_).c_str(), nullptr, nullptr);
  const NatsStreamInfo info(read);
  return *status == NATS_OK ? info->Created : 0;
}

natsStatus KvWatch::FollowChanges(kvWatcher* watcher, jsCtx* jet_stream, std::int64_t created_ns) {
  bool is_complete = false;
  KvCopy::Values first_values;
  for (;;) {
    kvEntry* received = nullptr;
    natsStatus status = kvWatcher_Next(&received, watcher, kQuiet_ms);
    const NatsEntry entry(received);
    if (status == NATS_TIMEOUT) {
      if (CreationTime(jet_stream, &status) == created_ns) {
        continue;
      }
      return status;
    }
    if (status != NATS_OK) {
      return status;
    }
    if (entry == nullptr) {  // the end of what the bucket held at first
      is_complete = true;
      copy_.Replace(std::move(first_values));
    } else if (is_complete) {
      Apply(received);
    } else if (kvEntry_Operation(received) == kvOp_Put) {
      first_values[kvEntry_Key(received)] = ValueOf(received);
    } else {
      first_values.erase(kvEntry_Key(received));
    }
  }
}

void KvWatch::Apply(kvEntry* entry) {
  if (kvEntry_Operation(entry) == kvOp_Put) {
    copy_.Put(kvEntry_Key(entry), ValueOf(entry));
  } else {
    copy_.Remove(kvEntry_Key(entry));
  }
}

}  // namespace tarvex
