// Buckets of a JetStream server, which databases are kept in.
#pragma once

#include <cstdint>
#include <string>

#include "platform/nats_handle.h"

namespace tarvex {

/// For requests to the server that stores buckets, which wait for a second at the most.
NatsJetStream OpenJetStream(natsConnection* connection, natsStatus* status);

/// Opens a bucket, and creates it where it is missing: on three servers of a cluster where
/// TARVEX_KV_ADDRESS has three addresses or more.
NatsStore OpenBucket(jsCtx* jet_stream, const std::string& bucket, natsStatus* status);

/// The stream that a bucket is.
std::string KvStream(const std::string& bucket);

/// What the subject of every key of a bucket begins with.
std::string KvSubjectPrefix(const std::string& bucket);

/// Makes a consumer of the last value of every key of a bucket and of every change that
/// follows. It ends with the connection, or with its server.
/// @param first_count how many messages it begins with.
/// @return its name; empty without one.
std::string ConsumeBucket(jsCtx* jet_stream, const std::string& bucket,
                          const std::string& deliver_subject, std::uint64_t* first_count,
                          natsStatus* status);

/// The same, as a subscription with a subject of its own.
NatsSubscription SubscribeToBucket(jsCtx* jet_stream, const std::string& bucket,
                                   natsStatus* status);

}  // namespace tarvex
