#include "platform/kv_bucket.h"

#include "platform/nats_link.h"

namespace tarvex {
namespace {

constexpr std::int64_t kRequestTimeout_ms = 1000;
constexpr std::size_t kMostReplicas = 3;  // more make writing slower, and no failure less likely

jsConsumerConfig LastValues() {
  jsConsumerConfig config;
  jsConsumerConfig_Init(&config);
  config.DeliverPolicy = js_DeliverLastPerSubject;
  config.AckPolicy = js_AckNone;
  config.MemoryStorage = true;
  return config;
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

NatsStore OpenBucket(jsCtx* jet_stream, const std::string& bucket, natsStatus* status) {
  kvStore* opened = nullptr;
  *status = js_KeyValue(&opened, jet_stream, bucket.c_str());
  if (*status == NATS_NOT_FOUND) {
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = bucket.c_str();
    config.History = 1;
    config.StorageType = js_FileStorage;
    config.Replicas = EffectiveServers(KvAddress()).size() >= kMostReplicas ? kMostReplicas : 1;
    *status = js_CreateKeyValue(&opened, jet_stream, &config);
  }
  return NatsStore(opened);
}

std::string KvStream(const std::string& bucket) { return "KV_" + bucket; }

std::string KvSubjectPrefix(const std::string& bucket) { return "$KV." + bucket + "."; }

std::string ConsumeBucket(jsCtx* jet_stream, const std::string& bucket,
                          const std::string& deliver_subject, std::uint64_t* first_count,
                          natsStatus* status) {
  jsConsumerConfig config = LastValues();
  const std::string filter = KvSubjectPrefix(bucket) + ">";
  config.FilterSubject = filter.c_str();
  config.DeliverSubject = deliver_subject.c_str();
  jsConsumerInfo* created = nullptr;
  *status =
      js_AddConsumer(&created, jet_stream, KvStream(bucket).c_str(), &config, nullptr, nullptr);
  const NatsConsumerInfo info(created);
  if (*status != NATS_OK) {
    return "";
  }
  *first_count = info->NumPending + info->Delivered.Consumer;
  return info->Name;
}

NatsSubscription SubscribeToBucket(jsCtx* jet_stream, const std::string& bucket,
                                   natsStatus* status) {
  const std::string stream = KvStream(bucket);
  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = stream.c_str();
  options.Config = LastValues();
  natsSubscription* created = nullptr;
  *status = js_SubscribeSync(&created, jet_stream, (KvSubjectPrefix(bucket) + ">").c_str(), nullptr,
                             &options, nullptr);
  return NatsSubscription(created);
}

}  // namespace tarvex
