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

/// How long the thread sleeps at a time: it notices a new connection after that.
constexpr std::int64_t kNap_ms = 200;

/// After so many naps without a change the server is asked whether it still watches.
constexpr int kQuietNaps = 15;

/// @param is_last whether nothing more is under way.
natsStatus ReadChange(natsMsg* message, std::size_t subject_prefix_length, KvChange* change,
                      bool* is_last) {
  jsMsgMetaData* read = nullptr;
  const natsStatus status = natsMsg_GetMetaData(&read, message);
  const NatsMetaData meta_data(read);
  if (status != NATS_OK) {
    return status;
  }
  const char* operation = nullptr;  // of a removal only: "DEL" or "PURGE"
  change->is_removal = natsMsgHeader_Get(message, "KV-Operation", &operation) == NATS_OK;
  *is_last = read->NumPending == 0;
  change->key = std::string(natsMsg_GetSubject(message)).substr(subject_prefix_length);
  change->value.assign(natsMsg_GetData(message),
                       static_cast<std::size_t>(natsMsg_GetDataLength(message)));
  return NATS_OK;
}

/// How many messages a new subscription is going to begin with.
natsStatus CountFirstValues(natsSubscription* subscription, std::uint64_t* count) {
  jsConsumerInfo* read = nullptr;
  const natsStatus status = natsSubscription_GetConsumerInfo(&read, subscription, nullptr, nullptr);
  const NatsConsumerInfo info(read);
  *count = status == NATS_OK ? info->NumPending + info->Delivered.Consumer : 0;
  return status;
}

}  // namespace

NatsJetStream OpenJetStream(natsConnection* connection, natsStatus* status) {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kRequestTimeout_ms;
  jsCtx* created = nullptr;
  *status = natsConnection_JetStream(&created, connection, &options);
  return NatsJetStream(created);
}

std::string KvSubjectPrefix(const std::string& bucket) { return "$KV." + bucket + "."; }

NatsSubscription SubscribeToBucket(jsCtx* jet_stream, const std::string& bucket,
                                   natsStatus* status) {
  const std::string stream = "KV_" + bucket;
  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = stream.c_str();
  options.Config.DeliverPolicy = js_DeliverLastPerSubject;
  options.Config.AckPolicy = js_AckNone;
  options.Config.MemoryStorage = true;
  jsErrCode error = static_cast<jsErrCode>(0);
  natsSubscription* created = nullptr;
  *status = js_SubscribeSync(&created, jet_stream, (KvSubjectPrefix(bucket) + ">").c_str(), nullptr,
                             &options, &error);
  return NatsSubscription(created);
}

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
  }
  changed_.notify_all();
  link_->Close();  // wakes the thread
  thread_.join();
}

void KvWatch::OnConnectionState(bool connected) {
  if (!connected) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    begin_anew_ = true;
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
      SYS_LOG(kLogError, "database %s: %s", bucket_.c_str(), natsStatus_GetText(status));
    }
    failing = is_failure;
    pause = is_failure ? std::min(pause * 2, kLongestPause) : kShortestPause;
    changed_.wait_for(lock, is_failure ? pause : kLongestPause,
                      [this] { return stopping_ || begin_anew_; });
  }
}

bool KvWatch::IsToEnd() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return stopping_ || begin_anew_;
}

/// Watches for as long as the connection and the bucket last.
natsStatus KvWatch::Watch() {
  natsStatus status = NATS_OK;
  const NatsJetStream jet_stream = OpenJetStream(link_->get(), &status);
  if (status != NATS_OK) {
    return status;
  }
  status = EnsureBucket(jet_stream.get());
  if (status != NATS_OK) {
    return status;
  }
  NatsSubscription subscription = SubscribeToBucket(jet_stream.get(), bucket_, &status);
  if (status != NATS_OK) {
    return status;
  }
  status = FollowChanges(subscription.get());
  link_->Retire(subscription.release());
  return status;
}

natsStatus KvWatch::EnsureBucket(jsCtx* jet_stream) const {
  kvStore* opened = nullptr;
  natsStatus status = js_KeyValue(&opened, jet_stream, bucket_.c_str());
  if (status == NATS_NOT_FOUND) {
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = bucket_.c_str();
    config.History = 1;
    config.StorageType = js_FileStorage;
    status = js_CreateKeyValue(&opened, jet_stream, &config);
  }
  const NatsStore store(opened);
  return status;
}

natsStatus KvWatch::FollowChanges(natsSubscription* subscription) {
  std::uint64_t first_count = 0;
  natsStatus status = CountFirstValues(subscription, &first_count);
  bool is_complete = first_count == 0;
  if (status == NATS_OK && is_complete) {
    copy_.Replace({});
  }
  KvCopy::Values first_values;
  for (int quiet_naps = 0; status == NATS_OK && !IsToEnd();) {
    natsMsg* received = nullptr;
    status = natsSubscription_NextMsg(&received, subscription, kNap_ms);
    const NatsMessage message(received);
    if (status == NATS_TIMEOUT) {
      status =
          ++quiet_naps % kQuietNaps == 0 ? CountFirstValues(subscription, &first_count) : NATS_OK;
      continue;
    }
    KvChange change;
    bool is_last = false;
    if (status == NATS_OK) {
      status = ReadChange(received, KvSubjectPrefix(bucket_).size(), &change, &is_last);
    }
    if (status != NATS_OK) {
      break;
    }
    quiet_naps = 0;
    if (is_complete) {
      copy_.Apply(change);
      continue;
    }
    KvCopy::Apply(change, &first_values);
    if (is_last) {
      is_complete = true;
      copy_.Replace(std::exchange(first_values, {}));
    }
  }
  return status;
}

}  // namespace tarvex
