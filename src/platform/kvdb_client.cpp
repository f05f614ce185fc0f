#include "cache/kvdb_client.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include <boost/make_shared.hpp>

#include "platform/database_states.h"
#include "platform/kv_watch.h"
#include "platform/log.h"
#include "platform/nats_link.h"
#include "platform/nats_names.h"

namespace {

/// How long a new client waits for the values that are stored already.
constexpr std::chrono::milliseconds kFirstValues(2000);

class WatchingKvdbClient;

std::mutex open_mutex;
std::set<const WatchingKvdbClient*> open_clients;

class WatchingKvdbClient final : public cache::KvdbClient {
 public:
  WatchingKvdbClient(std::string name, const std::string& bucket,
                     std::shared_ptr<tarvex::KvWatch> watch)
      : name_(std::move(name)), watch_(std::move(watch)), copy_(watch_->Follow(bucket)) {
    if (watch_->IsConnected()) {  // a server that is away is not waited for
      copy_->WaitForFirst(kFirstValues);
    }
    const std::lock_guard<std::mutex> lock(open_mutex);
    open_clients.insert(this);
  }
  ~WatchingKvdbClient() override {
    const std::lock_guard<std::mutex> lock(open_mutex);
    open_clients.erase(this);
  }
  WatchingKvdbClient(const WatchingKvdbClient&) = delete;
  WatchingKvdbClient& operator=(const WatchingKvdbClient&) = delete;

  const std::string& name() const { return name_; }
  bool IsConnected() const { return watch_->IsConnected(); }

  int GetValue(const std::string& key, std::string* value) override {
    return copy_->Get(key, value) ? 1 : 0;
  }

 private:
  const std::string name_;
  const std::shared_ptr<tarvex::KvWatch> watch_;
  const std::shared_ptr<const tarvex::KvCopy> copy_;
};

}  // namespace

boost::shared_ptr<cache::KvdbClient> cache::KvdbClient::CreateKvdbNetClient(
    const std::string& name, const tarvex::SocketAddress& address) {
  const std::string bucket = tarvex::KvBucket(name);
  if (name.empty() || !std::all_of(bucket.begin(), bucket.end(), tarvex::IsBucketCharacter)) {
    SYS_LOG(kLogError, "not the name of a database: %s", name.c_str());
    return nullptr;
  }
  auto watch = tarvex::KvWatch::Of(address);
  if (!watch) {
    return nullptr;
  }
  return boost::make_shared<WatchingKvdbClient>(name, bucket, std::move(watch));
}

std::map<std::string, bool> tarvex::DatabaseStates() {
  std::map<std::string, bool> states;
  const std::lock_guard<std::mutex> lock(open_mutex);
  for (const WatchingKvdbClient* client : open_clients) {
    bool& is_connected = states.emplace(client->name(), true).first->second;
    is_connected = is_connected && client->IsConnected();
  }
  return states;
}
