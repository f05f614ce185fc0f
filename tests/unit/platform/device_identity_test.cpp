#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "chw_info.h"
#include "platform/device_serial.h"
#include "scoped_environment.h"
#include "support/temp_directory.h"

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

/// A machine's root directory.
class MachineTest : public testing::Test {
 protected:
  void Write(const std::string& file, const std::string& content) {
    const std::filesystem::path path = root_.path() / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << content << "\n";
  }
  std::string Identity() const { return tarvex::MachineIdentity(root_.path().string()); }

  TempDirectory root_;
};

TEST_F(MachineTest, IsKnownByItsMachineId) {
  Write("proc/sys/kernel/hostname", "desk");
  Write("etc/machine-id", "0123456789abcdef0123456789abcdef");
  EXPECT_EQ(Identity(), "0123456789abcdef0123456789abcdef");
}

TEST_F(MachineTest, WithoutAMachineIdIsKnownByItsNameAndNetworks) {
  Write("proc/sys/kernel/hostname", "desk");
  Write("sys/class/net/eth0/address", "02:00:00:00:00:01");
  const std::string first = Identity();
  EXPECT_EQ(Identity(), first);
  Write("sys/class/net/eth0/address", "02:00:00:00:00:02");
  EXPECT_NE(Identity(), first);
}

TEST_F(MachineTest, WithoutAnythingOfItsOwnIsKnownAllTheSame) {
  EXPECT_THAT(tarvex::SerialFromMachineId(Identity()), MatchesRegex("[0-9A-F]{16}"));
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
