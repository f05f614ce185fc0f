#include "chw_info.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "platform/device_serial.h"

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

std::string MachineId() {
  std::ifstream file("/etc/machine-id");
  std::string id;
  std::getline(file, id);  // empty where the machine has none: a serial number all the same
  return id;
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

ChwInfo* ChwInfo::Interface() {
  static DeskInfo info;
  return &info;
}

std::string hw_sn() {
  return FromEnvironment("TARVEX_SERIAL_NUMBER", tarvex::SerialFromMachineId(MachineId()));
}
