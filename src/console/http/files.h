// Files of a directory, served by name only.
#pragma once

#include <string>

#include "console/http/http_server.h"

namespace console {

/// @param name of a file in the directory itself: letters, digits, '.', '_' and '-', and no
///             '.' at its begin.
/// @return the file, or 404.
HttpResponse FileResponse(const std::string& directory, const std::string& name);

}  // namespace console
