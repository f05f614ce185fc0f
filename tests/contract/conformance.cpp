// adapter_conformance: the contract's tests against a library that somebody else has built, on the
// machine that it is for. The file is looked at first, so that what no test can run with is told
// in one line.
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <string>

#include "adapter_test.h"
#include "library_file.h"

namespace {

constexpr int kUnusable = 2;
constexpr char kUsage[] =
    "usage: adapter_conformance LIBRARY [--junit FILE] [--gtest_filter=PATTERN] ...\n"
    "Holds LIBRARY, a libmqttadapter.so, against what a host may rely on: one test for each\n"
    "behaviour. --junit writes the results as JUnit's XML, --gtest_list_tests lists the tests,\n"
    "--help says the rest.\n"
    "exit status: 0 all hold, 1 some do not, 2 LIBRARY cannot be used\n";

std::string g_library;  // set once, before the first test

int Refuse(const std::string& why) {
  std::cerr << "adapter_conformance: " << why << '\n';
  return kUnusable;
}

}  // namespace

const char* LibraryFile() { return g_library.c_str(); }

int main(int argc, char** argv) {
  std::string junit;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--help") {
      std::cout << kUsage;
      return 0;
    }
    if (word == "--junit" && i + 1 < argc) {
      junit = argv[++i];
    } else if (word.compare(0, strlen("--gtest"), "--gtest") != 0) {
      if (!g_library.empty() || word.empty() || word[0] == '-') {
        return Refuse("unexpected: " + word + "\n" + kUsage);
      }
      g_library = word;
    }
  }
  if (!junit.empty()) {
    testing::GTEST_FLAG(output) = "xml:" + junit;
  }
  testing::InitGoogleTest(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests)) {
    if (g_library.empty()) {
      return Refuse(std::string("which library?\n") + kUsage);
    }
    g_library = LibraryPath(g_library);
    const std::string wrong = WhatIsWrong(g_library);
    if (!wrong.empty()) {
      return Refuse(g_library + " " + wrong);
    }
  }
  return RUN_ALL_TESTS();
}
