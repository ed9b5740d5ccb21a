#include "addon/native_library.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ostrel_native {
namespace {

// A library that every machine with a C run-time has.
constexpr char kMathLibrary[] = "libm.so.6";

TEST(OpenLibrary, FindsANameThroughTheLoaderAndLeavesTheLastErrorAlone) {
  SetLastError("earlier");
  void* const handle = OpenLibrary(kMathLibrary);
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(GetLastErrorString(), "earlier");
  CloseLibrary(handle);
}

TEST(OpenLibrary, TellsThePathAndTheLoadersReason) {
  EXPECT_EQ(OpenLibrary("/nowhere/libcamera.so"), nullptr);
  EXPECT_EQ(GetLastErrorString(),
            "Could not load native library '/nowhere/libcamera.so': /nowhere/libcamera.so: cannot "
            "open shared object file: No such file or directory");
}

TEST(OpenLibrary, GivesTheTextOfAFailureToItsCallerAsWell) {
  std::string failure = "earlier";
  void* const handle = OpenLibrary(kMathLibrary, failure);
  EXPECT_EQ(failure, "earlier");
  CloseLibrary(handle);
  EXPECT_EQ(OpenLibrary("/dev/null", failure), nullptr);
  EXPECT_EQ(failure, "Could not load native library '/dev/null': /dev/null: file too short");
  EXPECT_EQ(GetLastErrorString(), failure);
}

TEST(LoadSymbol, TakesANullHandleAndANullNameSilently) {
  SetLastError("earlier");
  void* const handle = OpenLibrary(kMathLibrary);
  EXPECT_EQ(LoadSymbol(nullptr, "cos"), nullptr);
  EXPECT_EQ(LoadSymbol(handle, nullptr), nullptr);
  EXPECT_EQ(LoadSymbol(handle, "no_such_symbol"), nullptr);
  EXPECT_NE(LoadSymbol(handle, "cos"), nullptr);
  EXPECT_EQ(GetLastErrorString(), "earlier");
  CloseLibrary(handle);
}

TEST(CloseLibrary, TakesNull) {
  CloseLibrary(nullptr);
}

TEST(LoadRequiredSymbol, StoresAFunctionThatCanBeCalled) {
  void* const handle = OpenLibrary(kMathLibrary);
  double (*cosine)(double) = nullptr;
  EXPECT_TRUE(LoadRequiredSymbol(handle, "cos", &cosine));
  EXPECT_EQ(cosine(0.0), 1.0);
  CloseLibrary(handle);
}

TEST(LoadRequiredSymbol, NamesAMissingSymbolAndKeepsTheFormerValue) {
  void* const handle = OpenLibrary(kMathLibrary);
  double (*function)(double) = nullptr;
  ASSERT_TRUE(LoadRequiredSymbol(handle, "cos", &function));
  const auto former = function;
  EXPECT_FALSE(LoadRequiredSymbol(handle, "cnokhwa_initialize", &function));
  EXPECT_EQ(GetLastErrorString(), "Required symbol not found: cnokhwa_initialize");
  EXPECT_EQ(function, former);
  CloseLibrary(handle);
}

TEST(LoadRequiredSymbol, GivesTheTextWithoutANameForANullName) {
  void* const handle = OpenLibrary(kMathLibrary);
  int (*function)() = nullptr;
  EXPECT_FALSE(LoadRequiredSymbol(handle, nullptr, &function));
  EXPECT_EQ(GetLastErrorString(), "Required symbol not found: ");
  CloseLibrary(handle);
}

TEST(BuildLoadCandidates, TriesAnExplicitPathAlone) {
  EXPECT_EQ(BuildLoadCandidates("/a/b.so", {"c.so", "d"}), std::vector<std::string>{"/a/b.so"});
}

TEST(BuildLoadCandidates, KeepsTheOrderOfTheDefaults) {
  const std::vector<std::string> defaults = {"libcnokhwa.so", "cnokhwa"};
  EXPECT_EQ(BuildLoadCandidates("", defaults), defaults);
  EXPECT_TRUE(BuildLoadCandidates("", {}).empty());
}

}  // namespace
}  // namespace ostrel_native
