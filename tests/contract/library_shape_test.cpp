// The shipped file as a loader sees it: its name, what it exports, what it needs, what it
// leaves to the process that loads it, and what keeps an overrun from going far.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <boost/core/demangle.hpp>

#include "adapter_test.h"

namespace {

using Names = std::set<std::string>;

/// The lines that a tool prints about the library.
std::vector<std::string> LinesOf(const std::string& tool) {
  const std::string command = tool + " '" + LibraryFile() + "'";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::vector<std::string> lines;
  char line[4096];
  while (pipe && fgets(line, sizeof(line), pipe.get()) != nullptr) {
    lines.emplace_back(line);
  }
  EXPECT_FALSE(lines.empty()) << command;
  return lines;
}

/// The lines of the dynamic section's entries of one kind.
std::vector<std::string> DynamicLines(const std::string& kind) {
  std::vector<std::string> lines = LinesOf(READELF_TOOL " --dynamic --wide");
  const auto is_other = [&kind](const std::string& line) {
    return line.find("(" + kind + ")") == std::string::npos;
  };
  lines.erase(std::remove_if(lines.begin(), lines.end(), is_other), lines.end());
  return lines;
}

/// The values in brackets of the dynamic section's entries of one kind.
Names Dynamic(const std::string& kind) {
  Names values;
  for (const std::string& line : DynamicLines(kind)) {
    const size_t from = line.find('[');
    values.insert(line.substr(from + 1, line.find(']') - from - 1));
  }
  return values;
}

/// The flags of a segment, such as "RW"; empty where there is none.
std::string SegmentFlags(const std::string& type) {
  for (const std::string& line : LinesOf(READELF_TOOL " --program-headers --wide")) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word == type) {
      for (int column = 0; column < 5; ++column) {
        words >> word;  // offset, addresses, sizes
      }
      words >> word;
      return word;
    }
  }
  return "";
}

/// A library's name without its version: "libc.so" of "libc.so.6".
std::string Plain(const std::string& library) { return library.substr(0, library.find(".so") + 3); }

/// The symbols that are undefined and have to be there, without their versions.
Names Undefined() {
  Names names;
  for (const std::string& line : LinesOf(NM_TOOL " --dynamic --undefined-only")) {
    std::istringstream words(line);
    std::string kind;
    std::string name;
    words >> kind >> name;
    if (kind == "U") {
      names.insert(name.substr(0, name.find('@')));
    }
  }
  return names;
}

/// A symbol's name as it is written, without its arguments and its ABI tag.
std::string Written(const std::string& symbol) {
  const std::string written = boost::core::demangle(symbol.c_str());
  return written.substr(0, written.find_first_of("(["));
}

TEST(LibraryShape, HasItsFixedName) { EXPECT_EQ(Dynamic("SONAME"), Names{"libmqttadapter.so"}); }

TEST(LibraryShape, ExportsTwoFunctionsAndNothingElse) {
  Names exported;
  for (const std::string& line : LinesOf(NM_TOOL " --dynamic --defined-only")) {
    std::istringstream words(line);
    std::string address;
    std::string kind;
    std::string name;
    words >> address >> kind >> name;
    exported.insert(kind.append(" ").append(name));
  }
  EXPECT_EQ(exported, (Names{"T create_adapter", "T destory_adapter"}));
}

TEST(LibraryShape, NeedsJsoncppAndTheRuntimeOnly) {
  // A hardened build takes the stack protector's guard from the loader.
  const Names allowed = {
      "libjsoncpp.so",      "libstdc++.so",      "libgcc_s.so",         "libc.so",    "libm.so",
      "ld-linux-x86-64.so", "ld-linux-armhf.so", "ld-linux-aarch64.so", "ld-linux.so"};
  Names needed;
  for (const std::string& library : Dynamic("NEEDED")) {
    needed.insert(Plain(library));
    EXPECT_EQ(allowed.count(Plain(library)), 1U) << library;
  }
  EXPECT_EQ(needed.count("libjsoncpp.so"), 1U);
}

TEST(LibraryShape, NamesNoPlaceToSearchForLibraries) {
  EXPECT_EQ(Dynamic("RUNPATH"), Names{});
  EXPECT_EQ(Dynamic("RPATH"), Names{});
}

TEST(LibraryShape, IsRefusedAsItIsLoadedWhereAPlatformSymbolIsMissing) {
  const std::vector<std::string> flags = DynamicLines("FLAGS_1");
  ASSERT_EQ(flags.size(), 1U);
  EXPECT_NE(flags[0].find(" NOW"), std::string::npos) << flags[0];
}

TEST(LibraryShape, LeavesThePlatformsSymbolsAndNoOthersToTheProcess) {
  std::vector<void*> needed;
  for (const std::string& library : Dynamic("NEEDED")) {
    needed.push_back(dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL));
    ASSERT_NE(needed.back(), nullptr) << dlerror();
  }
  Names left;
  for (const std::string& symbol : Undefined()) {
    bool provided = false;
    for (void* library : needed) {
      provided = provided || dlsym(library, symbol.c_str()) != nullptr;
    }
    if (!provided) {
      left.insert(Written(symbol));
    }
  }
  EXPECT_EQ(left, (Names{"ChwInfo::Interface", "Json::Json2String", "Json::String2Json",
                         "__sys_log", "cache::KvdbClient::CreateKvdbNetClient", "hw_sn",
                         "tarvex::Base64::DecodeFromArray", "tarvex::Base64::Encode",
                         "tarvex::DpClient::CreateDpClient", "tarvex::XTimeUtil::TimeLocalMake",
                         "tarvex::XTimeUtil::TimeLocalToString", "tarvex::XTimeUtil::TimeSecond"}));
  for (void* library : needed) {
    dlclose(library);
  }
}

/// Of a library that is built as it ships, so not of one that is not optimised.
class Hardening : public testing::Test {
 protected:
  /// Clang takes no part in the C library's checks of what C++ prints.
  static bool IsOfClang() {
    const std::vector<std::string> lines = LinesOf(READELF_TOOL " --string-dump=.comment");
    return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("clang") != std::string::npos;
    });
  }
};

TEST_F(Hardening, HasNoRelocationsInCode) {
  EXPECT_TRUE(DynamicLines("TEXTREL").empty());
  for (const std::string& line : DynamicLines("FLAGS")) {
    EXPECT_EQ(line.find("TEXTREL"), std::string::npos) << line;
  }
}

TEST_F(Hardening, MakesWhatTheLoaderHasFilledInReadOnly) {
  EXPECT_EQ(SegmentFlags("GNU_RELRO"), "R");
  EXPECT_EQ(DynamicLines("FLAGS_1").size(), 1U) << "all of it is filled in at once";
}

TEST_F(Hardening, HasAStackThatIsNotExecuted) { EXPECT_EQ(SegmentFlags("GNU_STACK"), "RW"); }

TEST_F(Hardening, GuardsItsStack) { EXPECT_EQ(Undefined().count("__stack_chk_fail"), 1U); }

TEST_F(Hardening, ChecksWhatItWritesIntoBuffers) {
  if (IsOfClang()) {
    GTEST_SKIP() << "built with clang";
  }
  EXPECT_EQ(Undefined().count("__snprintf_chk"), 1U);
  EXPECT_EQ(Undefined().count("snprintf"), 0U);
}

}  // namespace
