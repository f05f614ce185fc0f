// Why a request to the camera is not carried out.
#pragma once

#include <stdexcept>
#include <string>

namespace virtual_camera {

/// Thrown by what carries out requests; its text goes into the answer.
class RequestError : public std::runtime_error {
 public:
  explicit RequestError(const std::string& reason) : std::runtime_error(reason) {}
};

}  // namespace virtual_camera
