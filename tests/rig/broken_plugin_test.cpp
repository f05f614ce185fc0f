// A plug-in that is none.
#include "rig_test.h"

namespace {

class BrokenPlugin : public RigTest {
 protected:
  /// Starts the agent with a plug-in path and waits for its end.
  void Launch(const std::string& plugin) {
    rig_.programs.plugin = plugin;
    rig_.LaunchAgent();
    ASSERT_TRUE(rig_.agent->WaitForExit());
    EXPECT_EQ(rig_.agent->exit_code(), 1);
  }
};

TEST_F(BrokenPlugin, ThatDoesNotExistIsRefused) {
  Launch("/nonexistent/libmqttadapter.so");
  EXPECT_THAT(rig_.agent->Output(), testing::HasSubstr("/nonexistent/libmqttadapter.so"));
}

TEST_F(BrokenPlugin, ThatIsNoLibraryIsRefused) {
  Launch("/etc/hostname");
  EXPECT_THAT(rig_.agent->Output(), testing::HasSubstr("/etc/hostname"));
}

TEST_F(BrokenPlugin, ThatExportsSomethingElseIsRefused) {
  Launch(RIG_PLATFORM);
  EXPECT_THAT(rig_.agent->Output(), testing::HasSubstr("create_adapter"));
}

}  // namespace
