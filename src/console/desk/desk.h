// What the desk looks like at present: the cameras, the connections, the link, and what
// has happened, in words.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>

#include <json/value.h>

#include "console/desk/outage_ledger.h"
#include "console/desk/recent_results.h"
#include "console/desk/redelivery.h"
#include "console/passports/passport.h"

namespace console {

struct LinkState {
  std::string mode = "whole";  ///< or "cut", "frozen", "limping"
  int delay_ms = 0;
  int bytes_per_second = 0;
  int connections = 0;
  int port = 0;  ///< 0: there is no link of the console's

  bool operator==(const LinkState& other) const {
    return mode == other.mode && delay_ms == other.delay_ms &&
           bytes_per_second == other.bytes_per_second && connections == other.connections &&
           port == other.port;
  }
};

/// One thread. The state is read as JSON, whole or what has changed.
class Desk {
 public:
  struct Addresses {
    std::string broker;
    std::string bus;  ///< empty where the console has no bus
  };

  explicit Desk(const Addresses& addresses);

  /// A camera that the console reaches on the bus.
  void AddCamera(const std::string& sn, bool can_restart_agent);
  bool Knows(const std::string& sn) const { return cameras_.count(sn) != 0; }

  void OnBroker(bool is_connected, Time_us now_us);
  void OnBus(bool is_connected, Time_us now_us);
  void OnLink(const LinkState& link, Time_us now_us);

  /// A camera's retained status at the broker. At most 4096 cameras are known.
  void OnStatus(const std::string& sn, const std::string& text, Time_us now_us);

  /// What the camera says of itself. @param state null: it did not answer, see `error`.
  void OnWorld(const std::string& sn, const Json::Value& state, const std::string& error,
               Time_us now_us);

  void OnAgentLink(const std::string& sn, bool is_up, const std::string& reason, Time_us now_us);

  /// A step of a passport.
  void OnStep(const Passport& passport, const std::string& step, Time_us now_us);

  /// Something that people should know. @param level "info", "good" or "bad".
  void Tell(const std::string& text, const char* level, Time_us now_us);

  void OnTime(Time_us now_us);

  bool IsOnline(const std::string& sn) const;

  /// Undelivered results, as the camera itself counts them; otherwise as its status says.
  std::optional<std::int64_t> BacklogOf(const std::string& sn) const;

  /// {"cameras", "recent", "desk", "told"}: everything. "recent" has what changes with each result,
  /// by serial number; cameras of which none has come are not in it.
  Json::Value All(Time_us now_us) const;

  /// The same members, with what has changed since the last call; null when nothing has.
  Json::Value TakeChanged(Time_us now_us);

 private:
  struct Camera {
    bool is_on_desk = false;
    bool can_restart_agent = false;
    bool is_online = false;
    Time_us since_us = 0;     // when the console saw that change; 0: it did not
    Json::Value started_at;   // of the agent, as its latest status says
    Json::Value undelivered;  // likewise
    Time_us status_at_us = 0;
    Json::Value world;
    std::string world_error;
    Time_us world_at_us = 0;
    Redelivery redelivery;
    RecentResults recent;
  };
  struct Told {
    std::uint64_t number;
    Time_us at_us;
    std::string text;
    std::string level;
  };

  Json::Value CameraJson(const Camera& camera) const;
  Json::Value DeskJson(Time_us now_us) const;
  static Json::Value ToldJson(const Told& told);
  bool IsTrouble() const;
  void NoteTrouble(Time_us now_us);

  const Addresses addresses_;
  bool is_broker_connected_ = false;
  bool is_bus_connected_ = false;
  bool was_whole_ = false;  // ever: what is not there yet is no outage
  LinkState link_;
  std::map<std::string, Camera> cameras_;  // by serial number
  OutageLedger outage_;
  std::deque<Told> told_;
  std::uint64_t last_told_ = 0;
  std::set<std::string> changed_cameras_;
  std::set<std::string> changed_recent_;
  bool has_desk_changed_ = true;
  std::uint64_t sent_told_ = 0;
};

}  // namespace console
