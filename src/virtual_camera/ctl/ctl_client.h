// camera_ctl's connection to the camera.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <json/value.h>

#include "platform/nats_link.h"

namespace virtual_camera {

/// Sends commands to the camera over the bus. Failures throw std::runtime_error with one
/// line that says why. Used on one thread.
class CtlClient {
 public:
  /// Connects, or throws after 3 seconds.
  CtlClient();

  /// Sends {"command": ..., ...} and waits up to 10 seconds for the answer.
  /// @return the answer, whose "ok" is true.
  Json::Value Send(const Json::Value& command);

  /// Asks the console for the passport of a result, message or request.
  /// @param id empty: the latest ones.
  /// @return the answer: its "passport" is an object, or its "passports" an array.
  Json::Value Passport(const std::string& id);

  /// Appends the recognition records that are announced on the bus to a file, which is emptied
  /// first; bodies of another length are left out, each with a line on standard error.
  /// @param count how many records to wait for; 0: until told to stop.
  /// @param is_to_stop asked several times a second.
  /// @return how many were written.
  int64_t Record(const std::string& path, int64_t count, const std::function<bool()>& is_to_stop);

 private:
  struct Partner;
  Json::Value Ask(const Partner& partner, const Json::Value& question);

  std::shared_ptr<tarvex::NatsLink> link_;
};

}  // namespace virtual_camera
