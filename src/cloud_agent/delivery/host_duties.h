// What the agent uses of the duties that every host has, under its own names.
#pragma once

#include "mqttadapter_host/delivery_guard.h"
#include "mqttadapter_host/plugin_protocol.h"

namespace agent {

using mqttadapter_host::Answer;
using mqttadapter_host::DeliveryGuard;
using mqttadapter_host::Duties;
using mqttadapter_host::IsResult;
using mqttadapter_host::kOfflineCountTag;
using mqttadapter_host::kOfflineRequest;
using mqttadapter_host::kOfflineResultTag;
using mqttadapter_host::PlateId;
using mqttadapter_host::PlateResult;
using mqttadapter_host::Sent;

}  // namespace agent
