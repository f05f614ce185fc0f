// "camera_ctl record": writes down what the plug-in of a running desk is given.
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <json/value.h>

#include "platform/nats_handle.h"
#include "platform/nats_link.h"

namespace virtual_camera {

/// Takes what the plug-in is called for and what its services answer from the agent's trace, and
/// the databases from their server. It does not listen to the services themselves: to the bus it
/// would be one more who serves them, and a service that is down would look slow. Failures throw
/// std::runtime_error with one line that says why. Used on one thread.
class CaptureRecorder {
 public:
  /// Connects to both servers, and empties the file.
  explicit CaptureRecorder(const std::string& path);
  ~CaptureRecorder();

  CaptureRecorder(const CaptureRecorder&) = delete;
  CaptureRecorder& operator=(const CaptureRecorder&) = delete;

  /// Writes until told to stop, or for so many seconds where they are above 0. What is too long
  /// for the trace is left out, with a line on standard error.
  /// @param is_to_stop asked several times a second.
  /// @return how many events are in the file.
  int64_t Run(int64_t seconds, const std::function<bool()>& is_to_stop);

 private:
  struct Database;

  void Look();
  void TakeTrace();
  void TakeChanges(Database* database);
  void OnTrace(const Json::Value& event);
  int64_t Offset_us(int64_t at_us) const;
  void Write(const std::string& line);

  const std::string path_;
  const int64_t start_us_;
  const double clock_scale_;
  std::ofstream file_;
  std::string sn_;                    // empty until an agent has told something
  std::vector<std::string> waiting_;  // for the header, which has the serial number
  int64_t written_ = 0;
  std::shared_ptr<tarvex::NatsLink> bus_;
  std::shared_ptr<tarvex::NatsLink> key_values_;
  natsSubscription* trace_ = nullptr;
  std::vector<Database> databases_;
};

}  // namespace virtual_camera
