// Connections to the servers of a desk, for a command that needs them now.
#pragma once

#include <memory>
#include <string>

#include "platform/nats_link.h"

namespace virtual_camera {

/// A server of the device, before the environment says where it really is.
struct DeskServer {
  const char* what;  ///< such as "the bus"
  tarvex::SocketAddress (*address)();
};

constexpr DeskServer kBusServer = {"the bus", tarvex::BusAddress};
constexpr DeskServer kDatabaseServer = {"the server of the databases", tarvex::KvAddress};

/// As in "the bus at 127.0.0.1:6101".
std::string NameOf(const DeskServer& server);

/// Throws std::runtime_error where it is not connected after 3 seconds.
std::shared_ptr<tarvex::NatsLink> Connected(const DeskServer& server);

}  // namespace virtual_camera
