// The command line of virtual_camera.
#pragma once

#include <CLI/CLI.hpp>

#include "virtual_camera/camera.h"

namespace virtual_camera {

/// Adds every option; parsing then fills `options`, which must outlive the parser.
void AddOptions(CLI::App& app, CameraOptions& options);

}  // namespace virtual_camera
