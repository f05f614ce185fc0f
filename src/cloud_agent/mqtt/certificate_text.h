// What is wrong with a server's certificate, in words.
#pragma once

#include <string>

struct x509_store_ctx_st;

namespace agent {

/// @param store a verification that has failed.
/// @param host  what the certificate should be for.
/// @return what is wrong, and what to do about it.
std::string DistrustText(x509_store_ctx_st* store, const std::string& host);

}  // namespace agent
