#include "camera/lent_references.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "unit/support/napi_stub.h"

namespace ostrel_native {

namespace {

struct LentReferences : testing::Test {
  LentReferences() {
    test::g_onDeleteReference = [this](napi_ref reference) {
      deleted.push_back(reinterpret_cast<std::uintptr_t>(reference));
    };
  }
  ~LentReferences() override { test::g_onDeleteReference = nullptr; }

  static void Release(std::uintptr_t number, std::thread::id lender) {
    Napi::Reference<Napi::Object> reference;
    test::SetFakeReference(reference, number);
    ReleaseOnLender(std::move(reference), lender);
  }

  std::vector<std::uintptr_t> deleted;
};

using Numbers = std::vector<std::uintptr_t>;

TEST_F(LentReferences, GoAtOnceOnTheLendersThreadAndWhereNoLenderIsKnown) {
  Release(1, std::this_thread::get_id());
  EXPECT_EQ(deleted, (Numbers{1}));
  Release(2, std::thread::id());
  EXPECT_EQ(deleted, (Numbers{1, 2}));
  ReleaseHandedOver();
  EXPECT_EQ(deleted, (Numbers{1, 2}));
}

TEST_F(LentReferences, AreLeftToTheLenderByAnyOtherThread) {
  const std::thread::id lender = std::this_thread::get_id();
  std::thread([&] {
    Release(3, lender);
    Release(4, lender);
    ReleaseHandedOver();
  }).join();
  EXPECT_EQ(deleted, Numbers{});
  ReleaseHandedOver();
  std::sort(deleted.begin(), deleted.end());
  EXPECT_EQ(deleted, (Numbers{3, 4}));
  ReleaseHandedOver();
  EXPECT_EQ(deleted.size(), 2U);
}

TEST_F(LentReferences, ThatAreEmptyAreNothing) {
  std::thread([lender = std::this_thread::get_id()] { ReleaseOnLender({}, lender); }).join();
  ReleaseHandedOver();
  EXPECT_EQ(deleted, Numbers{});
}

}  // namespace

}  // namespace ostrel_native
