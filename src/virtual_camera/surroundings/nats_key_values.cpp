#include "virtual_camera/surroundings/nats_key_values.h"

#include <chrono>
#include <utility>

#include "platform/kv_bucket.h"
#include "platform/log.h"
#include "platform/nats_handle.h"

namespace virtual_camera {

namespace {

constexpr std::chrono::milliseconds kRetry{300};

using KvEntry = tarvex::NatsHandle<kvEntry, kvEntry_Destroy>;

std::string TextOf(kvEntry* entry) {
  const void* value = kvEntry_Value(entry);
  return value == nullptr ? std::string()
                          : std::string(static_cast<const char*>(value),
                                        static_cast<size_t>(kvEntry_ValueLen(entry)));
}

}  // namespace

NatsKeyValues::NatsKeyValues(tarvex::AsioEventService& event_service)
    : event_service_(event_service) {}

NatsKeyValues::~NatsKeyValues() {
  if (thread_.joinable()) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      is_ending_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }
}

void NatsKeyValues::Begin(const std::vector<KeyValue>& values,
                          std::function<void(const std::string&, const std::string&)> on_adopted) {
  values_ = values;
  on_adopted_ = std::move(on_adopted);
  const auto on_state = [this](bool connected) {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_due_ = is_due_ || connected;
    wake_.notify_all();
  };
  link_ =
      tarvex::NatsLink::Connect(tarvex::KvAddress(), "virtual_camera", {on_state, nullptr, true});
  if (!link_) {
    SYS_LOG(kLogError, "there can be no key-value databases");
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_due_ = true;
  }
  thread_ = std::thread([this] { Work(); });
}

void NatsKeyValues::Put(const std::string& key, const std::string& value,
                        std::function<void(bool)> done) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (KeyValue& known : values_) {
    if (known.key == key) {
      known.value = value;
      known.is_newer = true;
    }
  }
  waiting_.push_back({key, value, std::move(done)});
  is_due_ = true;
  wake_.notify_all();
  if (!thread_.joinable()) {
    Answer(std::exchange(waiting_, {}), false);
  }
}

void NatsKeyValues::Work() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!is_ending_) {
    if (!is_due_) {
      wake_.wait(lock);
      continue;
    }
    is_due_ = false;
    const std::vector<KeyValue> values = values_;
    std::vector<Waiting> waiting = std::exchange(waiting_, {});
    lock.unlock();
    const bool is_done = link_->IsConnected() && SyncAll(values);
    Answer(std::move(waiting), is_done);
    lock.lock();
    if (!is_done && link_->IsConnected()) {
      // The server accepts connections before its databases are ready.
      wake_.wait_for(lock, kRetry, [this] { return is_ending_; });
      is_due_ = true;
    }
  }
}

bool NatsKeyValues::SyncAll(const std::vector<KeyValue>& values) {
  bool is_done = true;
  for (const KeyValue& value : values) {
    is_done = is_done && SyncOne(link_->get(), value);
  }
  return is_done;
}

bool NatsKeyValues::SyncOne(natsConnection* connection, const KeyValue& wanted) {
  natsStatus opened = NATS_OK;
  const tarvex::NatsJetStream context = tarvex::OpenJetStream(connection, &opened);
  if (opened != NATS_OK) {
    return false;
  }
  const tarvex::NatsStore store =
      tarvex::OpenBucket(context.get(), tarvex::KvBucket(wanted.database), &opened);
  if (opened != NATS_OK) {
    return false;
  }
  kvEntry* raw_entry = nullptr;
  const natsStatus status = kvStore_Get(&raw_entry, store.get(), wanted.key.c_str());
  const KvEntry entry(status == NATS_OK ? raw_entry : nullptr);
  if (status == NATS_OK && (!wanted.is_newer || TextOf(entry.get()) == wanted.value)) {
    Settle(wanted, TextOf(entry.get()));
    return true;
  }
  if (status != NATS_OK && status != NATS_NOT_FOUND) {
    return false;
  }
  if (kvStore_Put(nullptr, store.get(), wanted.key.c_str(), wanted.value.data(),
                  static_cast<int>(wanted.value.size())) != NATS_OK) {
    return false;
  }
  SYS_LOG(kLogInfo, "%s of %s is filled in", wanted.key.c_str(), wanted.database.c_str());
  Settle(wanted, wanted.value);
  return true;
}

void NatsKeyValues::Settle(const KeyValue& wanted, const std::string& in_database) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (KeyValue& known : values_) {
    // One that has changed meanwhile is due again.
    if (known.key != wanted.key || known.value != wanted.value) {
      continue;
    }
    known.is_newer = false;
    if (in_database != known.value) {
      known.value = in_database;
      event_service_.PostTask(
          [adopted = on_adopted_, key = known.key, value = known.value] { adopted(key, value); });
    }
  }
}

void NatsKeyValues::Answer(std::vector<Waiting> waiting, bool written) {
  for (Waiting& one : waiting) {
    event_service_.PostTask([done = std::move(one.done), written] { done(written); });
  }
}

}  // namespace virtual_camera
