// A serial number for a desk machine that has none.
#pragma once

#include <string>

namespace tarvex {

/// 16 hexadecimal digits, the same for the same machine id. The id itself is not to
/// be given away, so it cannot be read back from them.
std::string SerialFromMachineId(const std::string& machine_id);

}  // namespace tarvex
