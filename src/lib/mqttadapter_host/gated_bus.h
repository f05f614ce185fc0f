// A gate between the bus and the plug-in, where the platform's bus client has none.
//
// The plug-in makes its bus client by tarvex::DpClient::CreateDpClient, which the loader looks for
// in the host's program before it looks in the platform. A program that is linked with
// libmqttadapter-host-bus has that function: it makes the platform's client and puts the gate
// before it. The platform has to be a shared library then, and the program be linked with -rdynamic
// and, where it needs nothing of the platform itself, -Wl,--no-as-needed.
#pragma once

#include <functional>

#include <boost/shared_ptr.hpp>

#include "tarvex/dp_client.h"

namespace mqttadapter_host {

/// Decides when a bus message reaches the plug-in; throws nothing.
/// @param message lives for the call only.
/// @param deliver to be called at most once, during the call or later, on the same thread; or
/// never,
///                which drops the message. Does nothing when the client is gone by then, or the
///                topic was left since.
using BusGate =
    std::function<void(const tarvex::DpMessage& message, std::function<void()> deliver)>;

/// Puts a gate before a bus client: requests and topics are passed on, messages go through the
/// gate. Everything happens on the event service's thread.
/// @param client may be null; nobody else is to connect to its signal.
/// @return a client of its own, or null.
boost::shared_ptr<tarvex::DpClient> GatedBus(boost::shared_ptr<tarvex::DpClient> client,
                                             BusGate gate);

/// With libmqttadapter-host-bus: the gate of every bus client that this process makes, at any time
/// before it makes them. An empty one lets all pass, also of the clients that are there. On the
/// event service's thread, or before it runs.
void SetBusGate(BusGate gate);

}  // namespace mqttadapter_host
