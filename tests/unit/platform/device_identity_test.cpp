#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chw_info.h"
#include "platform/device_serial.h"
#include "scoped_environment.h"

namespace {

using testing::MatchesRegex;

TEST(SerialNumber, IsTheOneOfTheEnvironment) {
  const ScopedEnvironment serial("TARVEX_SERIAL_NUMBER", "CAM-0007");
  EXPECT_EQ(hw_sn(), "CAM-0007");
}

TEST(SerialNumber, IsMadeFromTheMachineOtherwise) {
  const ScopedEnvironment serial("TARVEX_SERIAL_NUMBER", "");
  EXPECT_THAT(hw_sn(), MatchesRegex("[0-9A-F]{16}"));
  EXPECT_EQ(hw_sn(), hw_sn());
}

TEST(SerialNumber, DiffersFromMachineToMachine) {
  EXPECT_NE(tarvex::SerialFromMachineId("0123456789abcdef0123456789abcdef"),
            tarvex::SerialFromMachineId("0123456789abcdef0123456789abcdee"));
}

TEST(SerialNumber, StaysTheSameFromReleaseToRelease) {
  EXPECT_EQ(tarvex::SerialFromMachineId("foobar"), "85944171F73967E8");
}

TEST(SoftwareVersion, IsTheOneOfTheEnvironment) {
  const ScopedEnvironment version("TARVEX_APP_VERSION", "9.8.7-test");
  EXPECT_EQ(ChwInfo::Interface()->GetAppVer(), "9.8.7-test");
}

TEST(SoftwareVersion, IsTheProjectsOtherwise) {
  EXPECT_THAT(ChwInfo::Interface()->GetAppVer(), MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
}

TEST(DistributorSerialNumber, IsTheOneOfTheEnvironmentOrEmpty) {
  EXPECT_EQ(ChwInfo::Interface()->GetOemSn(), "");
  const ScopedEnvironment serial("TARVEX_OEM_SN", "D-1");
  EXPECT_EQ(ChwInfo::Interface()->GetOemSn(), "D-1");
}

}  // namespace
