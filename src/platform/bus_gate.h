// Lets a host hold bus messages back before its plug-in sees them.
#pragma once

#include <functional>

#include "tarvex/dp_client.h"

namespace tarvex {

/// Decides when a bus message reaches the listeners of its client.
/// @param message lives for the call only.
/// @param deliver to be called at most once, during the call or later, on the same
///                thread; or never, which drops the message. Does nothing when the
///                client is gone by then, or no longer listens to the topic.
using BusGate = std::function<void(const DpMessage& message, std::function<void()> deliver)>;

/// Installs the gate of this process: it is called on the event service's thread with
/// every message that a DpClient is about to emit. An empty gate lets all pass at once.
/// To be called on that thread, or before it runs.
void SetBusGate(BusGate gate);

/// For clients: passes a message through the gate, or at once where there is none.
void PassBusGate(const DpMessage& message, std::function<void()> deliver);

}  // namespace tarvex
