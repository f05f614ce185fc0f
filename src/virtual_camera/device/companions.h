// The devices that are bound to this camera, and the talk-back sessions with them.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include <json/value.h>

#include "virtual_camera/store/settings.h"

namespace virtual_camera {

/// Knows devices by serial number, itself among them. Used on the camera's thread.
class Companions {
 public:
  static constexpr size_t kMaxSessions = 8;
  static constexpr int kFirstPort = 20000;
  static constexpr int kMaxWindow = 65536;

  /// @param serial_number of this camera.
  Companions(Settings& settings, const std::string& serial_number);

  /// [{"sn", "name", "type", "ip", "online"}, ...]
  const Json::Value& Bound() const { return bound_; }

  /// The RTSP address of this camera or of a bound device. Throws RequestError for
  /// another serial number, as below.
  /// @param own_ip this camera's present address.
  std::string RtspUrl(const std::string& sn, const std::string& own_ip) const;

  /// Opens a talk-back session, or changes the window of the one that is open. Beyond
  /// kMaxSessions the oldest is ended.
  /// @param window_size packets, 1 to kMaxWindow.
  /// @return the port of the session.
  int OpenTalkback(const std::string& sn, int window_size);

  void EndTalkbacks() { sessions_.clear(); }

  Json::Value TalkbackState() const;

 private:
  struct Session {
    std::string sn;
    int port;
    int window_size;
  };

  bool IsKnown(const std::string& sn) const;
  int FreePort() const;

  const std::string serial_number_;
  Json::Value bound_;
  std::deque<Session> sessions_;
};

}  // namespace virtual_camera
