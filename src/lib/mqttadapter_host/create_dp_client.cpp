// The host's own tarvex::DpClient::CreateDpClient, which stands before the platform's.
#include <dlfcn.h>

#include <cstring>
#include <utility>

#include "mqttadapter_host/gated_bus.h"
#include "sys_log.h"

namespace mqttadapter_host {
namespace {

BusGate& TheGate() {
  static BusGate gate;
  return gate;
}

void Pass(const tarvex::DpMessage& message, std::function<void()> deliver) {
  const BusGate gate = TheGate();
  if (gate) {
    gate(message, std::move(deliver));
  } else {
    deliver();
  }
}

using Create = decltype(&tarvex::DpClient::CreateDpClient);

/// The next function of this one's name: the platform's. Null where no library has it.
Create PlatformsOwn() {
  const Create own = &tarvex::DpClient::CreateDpClient;
  void* address = nullptr;
  std::memcpy(&address, &own, sizeof(address));
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_sname == nullptr) {
    return nullptr;
  }
  void* const next = dlsym(RTLD_NEXT, info.dli_sname);
  Create platforms = nullptr;
  std::memcpy(&platforms, &next, sizeof(platforms));
  return platforms;
}

}  // namespace

void SetBusGate(BusGate gate) { TheGate() = std::move(gate); }

}  // namespace mqttadapter_host

boost::shared_ptr<tarvex::DpClient> tarvex::DpClient::CreateDpClient(
    boost::shared_ptr<EventService> event_service, const SocketAddress& address,
    const std::string& name) {
  const mqttadapter_host::Create create = mqttadapter_host::PlatformsOwn();
  if (create == nullptr) {
    __sys_log(3, "mqttadapter_host", __func__, __LINE__,
              "no shared library of this process has tarvex::DpClient::CreateDpClient");
    return nullptr;
  }
  return mqttadapter_host::GatedBus(create(event_service, address, name), mqttadapter_host::Pass);
}
