#include "cache/kvdb_client.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include <boost/make_shared.hpp>

#include "platform/kv_watch.h"
#include "platform/log.h"
#include "platform/nats_link.h"
#include "platform/nats_names.h"

namespace {

/// How long a new client waits for the values that are stored already.
constexpr std::chrono::milliseconds kFirstValues(2000);

class WatchingKvdbClient final : public cache::KvdbClient {
 public:
  explicit WatchingKvdbClient(std::unique_ptr<tarvex::KvWatch> watch) : watch_(std::move(watch)) {}

  int GetValue(const std::string& key, std::string* value) override {
    return watch_->copy().Get(key, value) ? 1 : 0;
  }

 private:
  const std::unique_ptr<tarvex::KvWatch> watch_;
};

}  // namespace

boost::shared_ptr<cache::KvdbClient> cache::KvdbClient::CreateKvdbNetClient(
    const std::string& name, const tarvex::SocketAddress& address) {
  const std::string bucket = tarvex::KvBucket(name);
  if (name.empty() || !std::all_of(bucket.begin(), bucket.end(), tarvex::IsBucketCharacter)) {
    SYS_LOG(kLogError, "not the name of a database: %s", name.c_str());
    return nullptr;
  }
  auto watch = tarvex::KvWatch::Begin(bucket, address);
  if (!watch) {
    return nullptr;
  }
  if (watch->IsConnected()) {  // a server that is away is not waited for
    watch->copy().WaitForFirst(kFirstValues);
  }
  return boost::make_shared<WatchingKvdbClient>(std::move(watch));
}
