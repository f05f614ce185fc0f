// Which broker address is tried next, and with which version of MQTT.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cloud_agent/mqtt/broker_address.h"
#include "cloud_agent/mqtt/mqtt_version.h"

namespace agent {

/// Addresses are tried in turn, in rounds that begin with the one that worked last. Of each it
/// is remembered which version its broker has. A broker that refuses MQTT 5 gets 3.1.1 for good.
/// One that only ends the connection on CONNECT may be one that goes away just then: it gets
/// 3.1.1 for one connection, and for good when that happens twice in a row. One that has once
/// answered in MQTT 5 gets 3.1.1 only when it says that it has no MQTT 5.
class BrokerTurns {
 public:
  struct Attempt {
    BrokerAddress address;
    MqttVersion version = MqttVersion::k5;
  };

  struct Next {
    bool is_at_once = false;  ///< the round goes on: no delay
    std::string text;         ///< what is new for the next attempt; may be empty
  };

  /// @param addresses at least one.
  /// @param version empty: found out for each address.
  BrokerTurns(const std::vector<BrokerAddress>& addresses, std::optional<MqttVersion> version);

  /// What is tried now.
  Attempt Present() const;

  /// The present attempt, or the connection that it became, is over.
  /// @param worked whether it became a connection.
  Next OnEnd(VersionFinding finding, bool worked);

 private:
  struct Broker {
    BrokerAddress address;
    MqttVersion version = MqttVersion::k5;  // to be tried
    bool is_settled = false;                // its version is known
    int doubts = 0;  // in a row: it ended the connection on MQTT 5, and then spoke 3.1.1
  };

  /// @return whether the same broker is to be tried at once, with another version.
  bool Learn(VersionFinding finding, Broker* broker, std::string* text) const;
  static bool LearnFrom5(VersionFinding finding, Broker* broker, std::string* text);

  const bool is_version_found_out_;
  std::vector<Broker> brokers_;
  std::size_t present_ = 0;
  std::size_t first_ = 0;  // of each round: the one that worked
  std::size_t tried_ = 0;  // in this round, before the present one
};

}  // namespace agent
