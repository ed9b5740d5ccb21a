// Running the body of a test in a process of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace ostrel_native {

/// Runs `body` in a fresh process whose loader searches `libraryPath`: a process reads that path
/// only when it starts. The process is this executable again, with the current test alone.
/// To be called once in a test, as all that it does. Fails the test if the body does.
template <typename Body>
void RunWithLibraryPath(const std::filesystem::path& libraryPath, Body body) {
  constexpr char kMark[] = "OSTREL_TEST_CHILD";
  if (std::getenv(kMark) != nullptr) {
    body();
    return;
  }
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string command = std::string(kMark) + "=1 LD_LIBRARY_PATH='" + libraryPath.string() +
                              "' '" + self + "' --gtest_filter=" + test.test_suite_name() + "." +
                              test.name() + " 2>&1";
  std::FILE* const pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char chunk[4096];
  for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
    output.append(chunk, got);
  }
  EXPECT_EQ(pclose(pipe), 0) << output;
  EXPECT_NE(output.find("[  PASSED  ] 1 test."), std::string::npos) << output;
}

}  // namespace ostrel_native
