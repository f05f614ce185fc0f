// Which names and addresses a NATS server can be given.
#pragma once

#include <string>

#include "tarvex/socket_address.h"

namespace tarvex {

/// A host name or a numeric address, and a port from 1 to 65535.
bool IsUsableAddress(const SocketAddress& address);

/// "HOST:PORT", with an IPv6 address in brackets.
std::string ServerText(const SocketAddress& server);

/// Whether TARVEX_SUBJECT_PREFIX, where it is set, can begin a subject; an error is
/// logged where it cannot.
bool IsUsablePrefix();

/// A subject without wildcards, white space and empty parts.
bool IsPlainSubject(const std::string& subject);

/// Letters, digits, '_' and '-'.
bool IsBucketCharacter(char character);

}  // namespace tarvex
