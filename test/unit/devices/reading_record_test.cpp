#include "devices/reading_record.h"

#include <gtest/gtest.h>

#include <array>
#include <latch>
#include <thread>
#include <vector>

#include "unit/support/eventually.h"

namespace ostrel_native {
namespace {

// Three members of which each writer makes the first two equal and the third their sum.
struct Members {
  ReadingRecord record;
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  std::atomic<int> sum{0};

  void Store(int value) {
    record.Write([this, value] {
      first = value;
      second = value;
      sum = 2 * value;
    });
  }

  std::array<int, 3> Load() {
    return record.Read([this] { return std::array<int, 3>{first, second, sum}; });
  }
};

TEST(ReadingRecord, GivesWhatWasWrittenLast) {
  Members members;
  EXPECT_EQ(members.Load(), (std::array{0, 0, 0}));
  members.Store(7);
  EXPECT_EQ(members.Load(), (std::array{7, 7, 14}));
  EXPECT_EQ(members.record.generation, 2U);
}

TEST(ReadingRecord, NeverGivesMembersOfTwoWritesHoweverManyWriteAtOnce) {
  constexpr int kWrites = 50'000;
  Members members;
  std::atomic<int> writing{2};
  std::vector<std::thread> threads;
  for (int writer = 0; writer < 2; ++writer) {
    threads.emplace_back([&members, &writing, writer] {
      for (int i = 0; i < kWrites; ++i) {
        members.Store(2 * i + writer);
      }
      --writing;
    });
  }
  for (int reader = 0; reader < 2; ++reader) {
    threads.emplace_back([&members, &writing] {
      do {
        const auto [first, second, sum] = members.Load();
        ASSERT_EQ(first, second);
        ASSERT_EQ(sum, 2 * first);
      } while (writing > 0);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(members.record.generation, 4U * kWrites);
}

// The writer is held inside its write, so no look without the lock can succeed.
TEST(ReadingRecord, WaitsForAWriterThatItMeetsAtEveryLookAndThenGivesItsMembers) {
  Members members;
  std::latch inside{1};
  std::latch goOn{1};
  std::thread writer([&] {
    members.record.Write([&] {
      members.first = 5;
      inside.count_down();
      goOn.wait();
      members.second = 5;
      members.sum = 10;
    });
  });
  inside.wait();
  std::atomic<int> looks{0};
  std::array<int, 3> read{};
  std::atomic<bool> isRead{false};
  std::thread reader([&] {
    read = members.record.Read([&] {
      ++looks;
      return std::array<int, 3>{members.first, members.second, members.sum};
    });
    isRead = true;
  });
  EXPECT_TRUE(Eventually([&] { return isRead || looks == ReadingRecord::kTriesWithoutLock; }));
  EXPECT_FALSE(isRead);
  goOn.count_down();
  writer.join();
  reader.join();
  EXPECT_EQ(read, (std::array{5, 5, 10}));
  EXPECT_EQ(looks, ReadingRecord::kTriesWithoutLock + 1);
}

}  // namespace
}  // namespace ostrel_native
