// What "camera_ctl trace" prints.
#pragma once

#include <string>

#include <json/value.h>

namespace virtual_camera {

/// No line of either is wider than this, and none has control characters in it.
constexpr size_t kPassportColumns = 100;

/// All that is known of one message or request; docs/trace.md has the members. What is
/// missing or of another type is left out.
std::string PassportText(const Json::Value& passport);

/// One line for each.
std::string PassportListText(const Json::Value& passports);

}  // namespace virtual_camera
