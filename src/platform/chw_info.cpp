#include "chw_info.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include "platform/device_serial.h"
#include "platform/log.h"

namespace {

/// The value of a variable of the environment, where it is set to something.
std::string FromEnvironment(const char* name, const std::string& otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr || *value == '\0' ? otherwise : value;
}

class DeskInfo : public ChwInfo {
 public:
  std::string GetAppVer() override {
    return FromEnvironment("TARVEX_APP_VERSION", PLATFORM_VERSION);
  }
  std::string GetOemSn() override { return FromEnvironment("TARVEX_OEM_SN", ""); }
};

/// The first line of a file; empty without one.
std::string LineOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

}  // namespace

std::string tarvex::SerialFromMachineId(const std::string& machine_id) {
  // FNV-1a, 64 bits.
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char character : machine_id) {
    hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3U;
  }
  std::array<char, 17> digits{};
  (void)std::snprintf(digits.data(), digits.size(), "%016llX",
                      static_cast<unsigned long long>(hash));
  return digits.data();
}

std::string tarvex::MachineIdentity(const std::string& root) {
  const std::filesystem::path base(root);
  std::string identity = LineOf(base / "etc/machine-id");
  if (!identity.empty()) {
    return identity;
  }
  std::set<std::string> parts = {LineOf(base / "proc/sys/kernel/hostname")};
  std::error_code ignored;  // a machine without networks
  for (const auto& network : std::filesystem::directory_iterator(base / "sys/class/net", ignored)) {
    parts.insert(LineOf(network.path() / "address"));
  }
  for (const std::string& part : parts) {
    identity += part + "\n";
  }
  SYS_LOG(kLogWarning,
          "this machine has no /etc/machine-id: the serial number is made of its host name and "
          "network addresses; TARVEX_SERIAL_NUMBER sets another");
  return identity;
}

ChwInfo* ChwInfo::Interface() {
  static DeskInfo info;
  return &info;
}

std::string hw_sn() {
  const std::string given = FromEnvironment("TARVEX_SERIAL_NUMBER", "");
  if (!given.empty()) {
    return given;
  }
  static const std::string machine = tarvex::SerialFromMachineId(tarvex::MachineIdentity("/"));
  return machine;
}
