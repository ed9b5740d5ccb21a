#include "edof/parallel_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "unit/support/thread_spy.h"

namespace ostrel_native {

namespace {

using Parts = std::vector<std::pair<int, int>>;

// The parts in the order of their rows, and the number of threads that were started for them.
struct Split {
  Split(int rows, unsigned maxThreads) {
    std::mutex mutex;
    const int before = test::StartedThreads();
    ParallelRows(rows, maxThreads, [this, &mutex](int first, int last) {
      const std::lock_guard lock(mutex);
      parts.emplace_back(first, last);
    });
    started = test::StartedThreads() - before;
    std::sort(parts.begin(), parts.end());
  }

  Parts parts;
  int started = 0;
};

TEST(ParallelRows, WithoutARowNothingIsCalled) {
  for (const int rows : {0, -1, -48}) {
    EXPECT_EQ(Split(rows, 8).parts, Parts{}) << rows;
  }
}

TEST(ParallelRows, ALimitBelowTwoStartsNoThread) {
  for (const unsigned limit : {0U, 1U}) {
    const Split split(1000, limit);
    EXPECT_EQ(split.parts, (Parts{{0, 1000}}));
    EXPECT_EQ(split.started, 0);
  }
}

TEST(ParallelRows, FortySevenRowsStayOnTheCallingThread) {
  for (const int rows : {1, 2, 47}) {
    const Split split(rows, 8);
    EXPECT_EQ(split.parts, (Parts{{0, rows}}));
    EXPECT_EQ(split.started, 0);
  }
}

TEST(ParallelRows, FortyEightRowsAreSplit) {
  EXPECT_EQ(Split(48, 8).started, 7);
  const Split three(48, 3);
  EXPECT_EQ(three.parts, (Parts{{0, 16}, {16, 32}, {32, 48}}));
  EXPECT_EQ(three.started, 2);
}

TEST(ParallelRows, UnevenPartsAreRoundedDown) {
  EXPECT_EQ(Split(50, 8).parts,
            (Parts{{0, 6}, {6, 12}, {12, 18}, {18, 25}, {25, 31}, {31, 37}, {37, 43}, {43, 50}}));
}

TEST(ParallelRows, TheLimitIsComparedAsUnsigned) {
  EXPECT_EQ(Split(48, 0xffffffffU).parts.size(), 48U);
}

TEST(ParallelRows, TheLastPartRunsOnTheCallingThread) {
  std::atomic<bool> lastIsHere{false};
  std::atomic<int> partsHere{0};
  ParallelRows(100, 4, [&, caller = std::this_thread::get_id()](int, int last) {
    if (std::this_thread::get_id() == caller) {
      ++partsHere;
      lastIsHere = last == 100;
    }
  });
  EXPECT_TRUE(lastIsHere);
  EXPECT_EQ(partsHere, 1);
}

TEST(ParallelRows, AnExceptionOfAThreadSurfacesWhenAllHaveEnded) {
  std::atomic<int> ended{0};
  try {
    ParallelRows(80, 8, [&ended](int first, int) {
      if (first == 0) {
        throw std::runtime_error("first part");
      }
      ++ended;
    });
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "first part");
  }
  EXPECT_EQ(ended, 7);
}

TEST(ParallelRows, OneOfSeveralExceptionsSurfaces) {
  EXPECT_THROW(ParallelRows(80, 8, [](int, int) { throw std::runtime_error("every part"); }),
               std::runtime_error);
}

TEST(ParallelRows, AnExceptionOfTheCallingThreadWaitsForTheOthers) {
  std::atomic<int> ended{0};
  EXPECT_THROW(ParallelRows(80, 4,
                            [&ended](int, int last) {
                              if (last == 80) {
                                throw std::runtime_error("last part");
                              }
                              ++ended;
                            }),
               std::runtime_error);
  EXPECT_EQ(ended, 3);
}

TEST(ParallelRows, AThreadThatCannotBeStartedEndsTheCallAfterTheOthers) {
  std::mutex mutex;
  Parts parts;
  const test::FailingThreadStart failing(3);
  try {
    ParallelRows(80, 8, [&mutex, &parts](int first, int last) {
      const std::lock_guard lock(mutex);
      parts.emplace_back(first, last);
    });
    FAIL() << "nothing was thrown";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
    EXPECT_STREQ(error.what(), "Resource temporarily unavailable");
  }
  std::sort(parts.begin(), parts.end());
  EXPECT_EQ(parts, (Parts{{0, 10}, {10, 20}})) << "the calling thread runs no part then";
}

}  // namespace

}  // namespace ostrel_native
