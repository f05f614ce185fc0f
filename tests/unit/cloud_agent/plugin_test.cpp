#include "cloud_agent/plugin.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_directory.h"

namespace agent {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string RefusalOf(const std::string& path) {
  std::string error;
  EXPECT_EQ(Plugin::Load(path, &error), nullptr);
  return error;
}

TEST(Plugin, MakesAnAdapterWithTheNumberGiven) {
  std::string error;
  const auto plugin = Plugin::Load(PLUGIN_COMPLETE, &error);
  ASSERT_NE(plugin, nullptr) << error;
  const AdapterPtr adapter = Plugin::CreateAdapter(plugin, nullptr, 7);
  ASSERT_NE(adapter, nullptr);
  EXPECT_EQ(adapter->Initialize({}), 7);
}

TEST(Plugin, IsToldApartByItsBuildId) {
  std::string error;
  const auto plugin = Plugin::Load(PLUGIN_COMPLETE, &error);
  ASSERT_NE(plugin, nullptr) << error;
  EXPECT_THAT(plugin->BuildId(), ::testing::MatchesRegex("[0-9a-f]{40}"));
  const auto other = Plugin::Load(PLUGIN_WITHOUT_ADAPTER, &error);
  EXPECT_NE(other->BuildId(), plugin->BuildId());
}

TEST(Plugin, TakesTheAdapterBackAndStaysLoadedUntilThen) {
  std::string error;
  auto plugin = Plugin::Load(PLUGIN_COMPLETE, &error);
  ASSERT_NE(plugin, nullptr) << error;
  void* library = dlopen(PLUGIN_COMPLETE, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr);
  const int* living = static_cast<int*>(dlsym(library, "living_adapters"));
  {
    AdapterPtr adapter = Plugin::CreateAdapter(plugin, nullptr, 1);
    plugin.reset();
    EXPECT_EQ(*living, 1);
  }
  EXPECT_EQ(*living, 0);
  dlclose(library);
  EXPECT_EQ(dlopen(PLUGIN_COMPLETE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is still loaded";
}

TEST(Plugin, ThatExportsNoCreateAdapterIsRefused) {
  EXPECT_THAT(RefusalOf(PLUGIN_WITHOUT_CREATE), EndsWith(": exports no create_adapter"));
}

TEST(Plugin, ThatExportsNoDestoryAdapterIsRefused) {
  EXPECT_THAT(RefusalOf(PLUGIN_WITHOUT_DESTROY), EndsWith(": exports no destory_adapter"));
}

TEST(Plugin, ThatIsNotThereIsRefusedInOneLine) {
  const std::string error = RefusalOf("no_such_plugin.so");
  EXPECT_THAT(error, StartsWith("no_such_plugin.so: cannot be loaded: "));
  EXPECT_EQ(error.find('\n'), std::string::npos);
}

TEST(Plugin, ThatIsNoLibraryIsRefused) {
  const TempDirectory directory;
  const std::string path = (directory.path() / "text.so").string();
  std::ofstream(path) << "a text";
  EXPECT_THAT(RefusalOf(path), HasSubstr("cannot be loaded"));
}

TEST(Plugin, MayMakeNoAdapter) {
  std::string error;
  const auto plugin = Plugin::Load(PLUGIN_WITHOUT_ADAPTER, &error);
  ASSERT_NE(plugin, nullptr) << error;
  EXPECT_EQ(Plugin::CreateAdapter(plugin, nullptr, 1), nullptr);
}

}  // namespace
}  // namespace agent
