// What the camera's store still holds for the cloud.
#pragma once

#include <cstdint>
#include <optional>

#include "tarvex/dp_client.h"

namespace agent {

/// The service queue of the camera's store.
constexpr char kStoreQueue[] = "BUS_GET_IVS_INFO";

struct Undelivered {
  std::int64_t count = 0;
  std::optional<std::int64_t> oldest_age_s;  ///< of the oldest of them, where it is known
};

/// Asks the store; blocks the event thread for as long as that takes.
/// @param bus        may be null.
/// @param timeout_ms at the most.
/// @return empty when the store cannot be asked.
std::optional<Undelivered> QueryUndelivered(tarvex::DpClient* bus, int timeout_ms);

}  // namespace agent
