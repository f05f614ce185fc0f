// Owners for the objects that the NATS library hands out.
#pragma once

#include <memory>

#include <nats/nats.h>

namespace tarvex {

/// Releases an object with its own function of the library.
template <class Object, void (*Destroy)(Object*)>
struct NatsRelease {
  void operator()(Object* object) const { Destroy(object); }
};

template <class Object, void (*Destroy)(Object*)>
using NatsHandle = std::unique_ptr<Object, NatsRelease<Object, Destroy>>;

using NatsOptions = NatsHandle<natsOptions, natsOptions_Destroy>;
using NatsMessage = NatsHandle<natsMsg, natsMsg_Destroy>;
using NatsSubscription = NatsHandle<natsSubscription, natsSubscription_Destroy>;
using NatsJetStream = NatsHandle<jsCtx, jsCtx_Destroy>;
using NatsStore = NatsHandle<kvStore, kvStore_Destroy>;
using NatsMetaData = NatsHandle<jsMsgMetaData, jsMsgMetaData_Destroy>;
using NatsConsumerInfo = NatsHandle<jsConsumerInfo, jsConsumerInfo_Destroy>;

}  // namespace tarvex
