// The camera's services, each in a file of its own, and the table that lists them.
#pragma once

#include <memory>
#include <vector>

#include "virtual_camera/service.h"

namespace virtual_camera {

std::unique_ptr<Service> CreateResults(Device& device);

/// Every service with its queue.
const std::vector<ServiceRow>& ServiceTable();

}  // namespace virtual_camera
