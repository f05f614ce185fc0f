// The command line of virtual_camera.
#pragma once

#include <optional>

#include "virtual_camera/camera.h"

namespace virtual_camera {

/// @return the exit status where the program is to end at once.
std::optional<int> ParseOptions(int argc, const char* const* argv, CameraOptions* options);

}  // namespace virtual_camera
