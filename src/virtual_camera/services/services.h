// The camera's services, each in a file of its own, and the table that lists them.
#pragma once

#include <memory>
#include <vector>

#include "virtual_camera/services/service.h"

namespace virtual_camera {

std::unique_ptr<Service> CreateBoundDevices(Device& device);
std::unique_ptr<Service> CreateGpioControl(Device& device);
std::unique_ptr<Service> CreateGpioStatus(Device& device);
std::unique_ptr<Service> CreatePanTiltControl(Device& device);
std::unique_ptr<Service> CreateRecognitionControl(Device& device);
std::unique_ptr<Service> CreateResults(Device& device);
std::unique_ptr<Service> CreateRtspAddress(Device& device);
std::unique_ptr<Service> CreateSerialWrite(Device& device);
std::unique_ptr<Service> CreateStayEvents(Device& device);
std::unique_ptr<Service> CreateSystem(Device& device);
std::unique_ptr<Service> CreateTalkback(Device& device);
std::unique_ptr<Service> CreateVoiceDisplaySettings(Device& device);
std::unique_ptr<Service> CreateWhiteListRecords(Device& device);

/// Every service with its queue.
const std::vector<ServiceRow>& ServiceTable();

}  // namespace virtual_camera
