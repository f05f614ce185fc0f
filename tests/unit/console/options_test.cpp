#include "console/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace console {
namespace {

std::optional<int> Parse(std::vector<const char*> arguments, ConsoleOptions* options) {
  // The files need not be the real ones here.
  arguments.insert(arguments.begin(), {"console", "--page", "/", "--contract", "/dev/null"});
  arguments.erase(arguments.begin() + 3, arguments.begin() + 5);
  options->contract_file = "/dev/null";
  return ParseOptions(static_cast<int>(arguments.size()), arguments.data(), options);
}

TEST(ConsoleOptions, NameTheCamerasOnTheBus) {
  ConsoleOptions options;
  ASSERT_EQ(Parse({"--camera", "CAM1", "--camera", "CAM2=desk.two"}, &options), std::nullopt);
  EXPECT_EQ(options.cameras.at("CAM1"), "");
  EXPECT_EQ(options.cameras.at("CAM2"), "desk.two.");
}

TEST(ConsoleOptions, TakeTheEnvironmentsCameraOtherwise) {
  setenv("TARVEX_SERIAL_NUMBER", "ENV1", 1);
  setenv("TARVEX_SUBJECT_PREFIX", "one", 1);
  ConsoleOptions options;
  ASSERT_EQ(Parse({}, &options), std::nullopt);
  EXPECT_EQ(options.cameras.at("ENV1"), "one.");
  unsetenv("TARVEX_SERIAL_NUMBER");
  unsetenv("TARVEX_SUBJECT_PREFIX");
}

TEST(ConsoleOptions, KnowNoCameraWithoutABus) {
  ConsoleOptions options;
  ASSERT_EQ(Parse({"--no-bus"}, &options), std::nullopt);
  EXPECT_FALSE(options.has_bus);
  EXPECT_TRUE(options.cameras.empty());
}

TEST(ConsoleOptions, TellDirectoriesAndProcessesByCamera) {
  ConsoleOptions options;
  ASSERT_EQ(Parse({"--pictures", "CAM1=/p", "--agent-pid", "CAM1=/a=b"}, &options), std::nullopt);
  EXPECT_EQ(options.pictures.at("CAM1"), "/p");
  EXPECT_EQ(options.agent_pids.at("CAM1"), "/a=b");
}

TEST(ConsoleOptions, RefuseWhatMakesNoSense) {
  const std::vector<std::vector<const char*>> wrong = {
      {"--port", "70000"},
      {"--port", "x"},
      {"--pictures", "CAM1"},
      {"--pictures", "=/p"},
      {"--agent-pid", "CAM1="},
      {"--broker", "host:port"},
      {"--camera", "A=b..c"},
      {"--no-such-option"},
      {"--no-bus", "--camera", "CAM1"},
      {"--ca", "/no/such/file"},
      {"--cert", "/dev/null", "--key", "/dev/null"},
      {"--ca", "/dev/null", "--cert", "/dev/null"},
  };
  for (const auto& arguments : wrong) {
    ConsoleOptions options;
    testing::internal::CaptureStderr();
    EXPECT_NE(Parse(arguments, &options).value_or(0), 0) << arguments[0] << " " << arguments.back();
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  }
}

}  // namespace
}  // namespace console
