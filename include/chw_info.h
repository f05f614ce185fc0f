// Identity of the device's hardware and software.
#pragma once

#include <string>

class ChwInfo {
 public:
  /// @return the process's instance, owned by the platform; may be null where the
  ///         identity cannot be read.
  static ChwInfo* Interface();

  virtual ~ChwInfo() {}

  /// Version of the application software, as text.
  virtual std::string GetAppVer() = 0;

  /// Serial number that the distributor gave the device; may be empty.
  virtual std::string GetOemSn() = 0;
};

/// Serial number of the device.
std::string hw_sn();
