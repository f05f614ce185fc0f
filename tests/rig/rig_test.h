// The fixture of the rig tests: the desk, and what is asked of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/rig.h"
#include "support/wait_until.h"

class RigTest : public testing::Test {
 protected:
  explicit RigTest(const BrokerProgram& broker = Mosquitto());

  /// On failure, shows what the programs wrote.
  void TearDown() override;

  /// The plate result in a message's payload.
  static const Json::Value& PlateResult(const Json::Value& message);

  /// The plate text of a result's message.
  static std::string Plate(const Json::Value& message);

  /// Waits for the result of a plate.
  Json::Value AwaitPlate(const std::string& plate);

  /// Waits until the agent has printed such a text.
  bool AgentPrints(const std::string& text);

  /// Whether the agent has a connection to the broker, as it prints.
  bool AgentIsConnected() const;

  /// Has cars pass while the broker is away; the agent runs, and knows.
  void MissCars(int count);

  /// Starts the broker that was ended, and waits until agent and test are connected again.
  void BrokerComesBack();

  /// Has a re-delivery begin.
  void Push(int max_count);

  int Undelivered() { return rig_.CameraState()["results"]["undelivered"].asInt(); }

  /// Waits for one re-delivered result. @return its plate id.
  unsigned int AwaitRedelivered();

  Rig rig_;
};

std::string FromBase64(const std::string& text);
