// Client of the device's key-value databases, which hold its settings.
#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include "tarvex/socket_address.h"

namespace cache {

class KvdbClient {
 public:
  /// Opens a database by name on the server at `address`.
  /// @return null when there can be no such client.
  static boost::shared_ptr<KvdbClient> CreateKvdbNetClient(const std::string& name,
                                                           const tarvex::SocketAddress& address);

  virtual ~KvdbClient() {}

  /// Reads a key.
  /// @param value receives the text; untouched when the key was not read.
  /// @return non-zero when the key was read.
  virtual int GetValue(const std::string& key, std::string* value) = 0;
};

}  // namespace cache
