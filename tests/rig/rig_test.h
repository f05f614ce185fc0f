// The fixture of the rig tests: the desk, and what is asked of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/rig.h"
#include "support/wait_until.h"

class RigTest : public testing::Test {
 protected:
  RigTest();

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

  /// Has cars pass while the broker is away; the agent runs, and knows.
  void MissCars(int count);

  void BrokerComesBack();

  Rig rig_;
};

std::string FromBase64(const std::string& text);
