// A serial number for a desk machine that has none.
#pragma once

#include <string>

namespace tarvex {

/// 16 hexadecimal digits, the same for the same machine id. The id itself is not to
/// be given away, so it cannot be read back from them.
std::string SerialFromMachineId(const std::string& machine_id);

/// What tells this machine from others: its machine id, or where it has none, after a
/// warning in the log, its host name and the addresses of its network interfaces.
/// @param root of the file system, "/".
std::string MachineIdentity(const std::string& root);

}  // namespace tarvex
