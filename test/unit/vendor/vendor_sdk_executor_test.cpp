// The owner thread. Tests occupy it with a task that waits for a gate, and know that all earlier
// work has ended once a later no-op has run.
#include "vendor/vendor_sdk_executor.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <latch>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "unit/support/eventually.h"
#include "unit/support/thread_names.h"

namespace ostrel_native {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShort{5};
// Far above what any task here takes.
constexpr milliseconds kLong{60'000};

// Holds the owner thread until it is opened; shared with the task, which may outlive the test's
// own frame.
struct Gate {
  std::latch entered{1};
  std::latch opened{1};

  static std::shared_ptr<Gate> Hold(VendorSdkExecutor& executor) {
    const auto gate = std::make_shared<Gate>();
    EXPECT_TRUE(executor.Enqueue([gate] { gate->Pass(); }));
    gate->entered.wait();
    return gate;
  }

  void Pass() {
    entered.count_down();
    opened.wait();
  }

  void Open() { opened.count_down(); }
};

struct VendorSdkExecutorTest : testing::Test {
  void Barrier() {
    ASSERT_TRUE(executor.InvokeVoid([] {}, kLong));
  }

  VendorSdkExecutor executor{"Test", milliseconds(10)};
};

TEST_F(VendorSdkExecutorTest, RunsTasksInOrderOnOneThreadThatIsItsOwn) {
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  for (int i = 0; i < 100; ++i) {
    executor.Enqueue([i, &order, &threads] {
      order.push_back(i);
      threads.push_back(std::this_thread::get_id());
    });
  }
  Barrier();
  std::vector<int> expected(100);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
  EXPECT_EQ(threads, std::vector<std::thread::id>(100, executor.worker.get_id()));
  EXPECT_NE(executor.worker.get_id(), std::this_thread::get_id());
}

TEST(VendorSdkExecutor, NamesItsThreadAfterItsLibraryInAtMost15Bytes) {
  VendorSdkExecutor first("Dino-Lite", milliseconds(10));
  VendorSdkExecutor second("Quite a Long Name", milliseconds(10));
  ASSERT_TRUE(first.InvokeVoid([] {}, kLong));
  ASSERT_TRUE(second.InvokeVoid([] {}, kLong));
  const std::map<std::string, int> names = ThreadNames();
  EXPECT_TRUE(names.contains("dino-lite sdk"));
  EXPECT_TRUE(names.contains("quite a long na"));
}

TEST_F(VendorSdkExecutorTest, TellsItsOwnThreadFromAllOthers) {
  EXPECT_FALSE(executor.IsOwnerThread());
  EXPECT_EQ(executor.Invoke([this] { return executor.IsOwnerThread(); }, kLong), true);
}

TEST_F(VendorSdkExecutorTest, CallsHereOnTheCallersThreadAndTellsWhatThatThrew) {
  SetLastError("earlier");
  EXPECT_EQ(executor.CallHere([] { return std::this_thread::get_id(); }),
            std::this_thread::get_id());
  EXPECT_EQ(GetLastErrorString(), "earlier");
  EXPECT_EQ(executor.CallHere([]() -> int { throw std::runtime_error("no such lens"); }),
            std::nullopt);
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed: no such lens");
  EXPECT_EQ(executor.CallHere([]() -> int { throw 5; }), std::nullopt);
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed with an unknown error");
}

TEST_F(VendorSdkExecutorTest, NeverOverlapsTheTasksOfManyCallersAndKeepsEachCallersOrder) {
  constexpr int kCallers = 8;
  constexpr int kCalls = 500;
  // Plain memory on purpose: only the owner thread touches it, which ThreadSanitizer checks.
  struct Seen {
    std::array<int, kCallers> last = {};
    int running = 0;
    int overlaps = 0;
    int disorder = 0;
    int tasks = 0;
  } seen;
  const auto run = [&seen](int caller, int call) {
    seen.overlaps += ++seen.running == 1 ? 0 : 1;
    int& last = seen.last.at(static_cast<std::size_t>(caller));
    seen.disorder += call == last + 1 ? 0 : 1;
    last = call;
    ++seen.tasks;
    --seen.running;
    return call;
  };
  {
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < kCallers; ++caller) {
      callers.emplace_back([this, run, caller] {
        for (int call = 1; call <= kCalls; ++call) {
          if (call % 2 == 0) {
            executor.Enqueue([run, caller, call] { run(caller, call); });
          } else {
            EXPECT_EQ(executor.Invoke([run, caller, call] { return run(caller, call); }, kLong),
                      call);
          }
          executor.PostCoalesced("poll", [] {});
        }
      });
    }
  }
  Barrier();
  EXPECT_EQ(seen.tasks, kCallers * kCalls);
  EXPECT_EQ(seen.overlaps, 0);
  EXPECT_EQ(seen.disorder, 0);
}

TEST_F(VendorSdkExecutorTest, GivesTheResultOfACallAndLeavesTheLastErrorAlone) {
  SetLastError("earlier");
  EXPECT_EQ(executor.Invoke([] { return 7; }, kLong), 7);
  EXPECT_EQ(executor.Invoke([] { return std::string("text"); }, kLong), "text");
  EXPECT_EQ(*executor.Invoke([] { return std::make_unique<int>(3); }, kLong).value(), 3);
  EXPECT_TRUE(executor.InvokeVoid([] {}, kLong));
  EXPECT_EQ(GetLastErrorString(), "earlier");
}

TEST_F(VendorSdkExecutorTest, TellsAResultOfFalseFromNone) {
  const std::optional<bool> result = executor.Invoke([] { return false; }, kLong);
  ASSERT_TRUE(result.has_value());
  EXPECT_FALSE(*result);
}

TEST_F(VendorSdkExecutorTest, TakesAWaitOfNoTimeAtAll) {
  const auto gate = Gate::Hold(executor);
  EXPECT_EQ(executor.Invoke([] { return 1; }, milliseconds(0)), std::nullopt);
  EXPECT_EQ(GetLastErrorString(), "Test SDK call timed out");
  gate->Open();
}

TEST_F(VendorSdkExecutorTest, TimesOutAndTheTaskRunsToItsEndAllTheSame) {
  const auto gate = std::make_shared<Gate>();
  const auto late = std::make_shared<std::atomic<int>>(0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(executor.Invoke(
                [gate, late] {
                  gate->Pass();
                  return ++*late;
                },
                milliseconds(50)),
            std::nullopt);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(50));
  EXPECT_EQ(GetLastErrorString(), "Test SDK call timed out");
  EXPECT_EQ(*late, 0);

  SetLastError("cleared");
  gate->Open();
  Barrier();
  EXPECT_EQ(*late, 1);
  EXPECT_EQ(GetLastErrorString(), "cleared");
}

TEST_F(VendorSdkExecutorTest, LaterCallsBehindAHungTaskTimeOutInTheirTurnAndRunOnceItEnds) {
  const auto gate = Gate::Hold(executor);
  const auto ran = std::make_shared<std::vector<int>>();
  for (int i = 0; i < 3; ++i) {
    SetLastError("");
    EXPECT_FALSE(executor.InvokeVoid([ran, i] { ran->push_back(i); }, kShort));
    EXPECT_EQ(GetLastErrorString(), "Test SDK call timed out");
  }
  gate->Open();
  Barrier();
  EXPECT_EQ(*ran, (std::vector<int>{0, 1, 2}));
}

// What a late task owns must outlive the caller's frame, and die with the task.
TEST_F(VendorSdkExecutorTest, ALateTaskOwnsItsCapturesWhichDieOnTheOwnerThread) {
  struct Witness {
    explicit Witness(std::shared_ptr<std::vector<std::thread::id>> where)
        : deaths(std::move(where)) {}
    ~Witness() { deaths->push_back(std::this_thread::get_id()); }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    std::shared_ptr<std::vector<std::thread::id>> deaths;
    std::string text = std::string(100, 'x');
  };
  const auto deaths = std::make_shared<std::vector<std::thread::id>>();
  const auto lengths = std::make_shared<std::vector<std::size_t>>();
  const auto gate = Gate::Hold(executor);
  {
    auto witness = std::make_shared<Witness>(deaths);
    EXPECT_FALSE(executor.InvokeVoid(
        [witness = std::move(witness), lengths] { lengths->push_back(witness->text.size()); },
        kShort));
  }
  executor.Enqueue([witness = std::make_shared<Witness>(deaths), lengths] {
    lengths->push_back(witness->text.size() + 1);
  });
  gate->Open();
  Barrier();
  EXPECT_EQ(*lengths, (std::vector<std::size_t>{100, 101}));
  EXPECT_EQ(*deaths, std::vector<std::thread::id>(2, executor.worker.get_id()));
}

TEST_F(VendorSdkExecutorTest, AResultThatComesAtTheDeadlineIsEitherTakenOrATimeOut) {
  for (int i = 0; i < 300; ++i) {
    SetLastError("");
    const std::optional<std::string> result = executor.Invoke(
        [] {
          std::this_thread::sleep_for(milliseconds(1));
          return std::string(50, 'r');
        },
        milliseconds(1));
    if (result) {
      ASSERT_EQ(*result, std::string(50, 'r'));
      ASSERT_EQ(GetLastErrorString(), "");
    } else {
      ASSERT_EQ(GetLastErrorString(), "Test SDK call timed out");
    }
    Barrier();
  }
}

TEST_F(VendorSdkExecutorTest, TellsWhatACallThrew) {
  EXPECT_EQ(executor.Invoke([]() -> int { throw std::runtime_error("no such lens"); }, kLong),
            std::nullopt);
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed: no such lens");
  EXPECT_FALSE(executor.InvokeVoid([] { throw std::runtime_error(""); }, kLong));
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed: ");
  EXPECT_EQ(executor.Invoke([]() -> int { throw 5; }, kLong), std::nullopt);
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed with an unknown error");
  EXPECT_FALSE(executor.InvokeVoid([] { throw 'x'; }, kLong));
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed with an unknown error");
  EXPECT_EQ(executor.Invoke([] { return 1; }, kLong), 1);
}

TEST_F(VendorSdkExecutorTest, ACallableThatIsEmptyFailsAsABadCall) {
  EXPECT_FALSE(executor.InvokeVoid(std::function<void()>(), kLong));
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed: bad_function_call");
}

TEST_F(VendorSdkExecutorTest, SwallowsWhatQueuedTasksThrow) {
  SetLastError("earlier");
  executor.Enqueue([] { throw std::runtime_error("lost"); });
  executor.Enqueue([] { throw 5; });
  executor.Enqueue({});
  executor.PostCoalesced("a", [] { throw std::runtime_error("lost"); });
  executor.PostCoalesced("b", [] { throw 5; });
  executor.PostCoalesced("c", {});
  Barrier();
  EXPECT_EQ(GetLastErrorString(), "earlier");
}

// Both forms: with a text alone, and with a key that carries its flag.
struct CoalescedPosts : testing::TestWithParam<bool> {
  void Post(CoalescedKey& key, std::function<void()> task) {
    if (GetParam()) {
      executor.PostCoalesced(key, std::move(task));
    } else {
      executor.PostCoalesced(std::string(key.name), std::move(task));
    }
  }

  void Barrier() {
    ASSERT_TRUE(executor.InvokeVoid([] {}, kLong));
  }

  CoalescedKey first{"first"};
  CoalescedKey second{"second"};
  VendorSdkExecutor executor{"Test", milliseconds(10)};
};

TEST_P(CoalescedPosts, KeepsOneTaskOfAKeyInFlight) {
  const auto gate = Gate::Hold(executor);
  const auto runs = std::make_shared<std::vector<std::string>>();
  for (int i = 0; i < 3; ++i) {
    Post(first, [runs] { runs->push_back("one"); });
    Post(second, [runs] { runs->push_back("two"); });
  }
  gate->Open();
  Barrier();
  EXPECT_EQ(*runs, (std::vector<std::string>{"one", "two"}));
  Post(first, [runs] { runs->push_back("again"); });
  Barrier();
  EXPECT_EQ(*runs, (std::vector<std::string>{"one", "two", "again"}));
}

TEST_P(CoalescedPosts, DropsAPostWhileItsKeyRunsAlsoByTheTaskItself) {
  const auto runs = std::make_shared<std::atomic<int>>(0);
  const auto gate = std::make_shared<Gate>();
  Post(first, [this, runs, gate] {
    ++*runs;
    Post(first, [runs] { *runs += 100; });
    gate->Pass();
  });
  gate->entered.wait();
  Post(first, [runs] { *runs += 100; });
  gate->Open();
  Barrier();
  EXPECT_EQ(*runs, 1);
}

TEST_P(CoalescedPosts, ReleasesTheKeyOfATaskThatThrows) {
  const auto runs = std::make_shared<int>(0);
  Post(first, [] { throw std::runtime_error("lost"); });
  Post(second, [] { throw 5; });
  Barrier();
  Post(first, [runs] { *runs += 1; });
  Post(second, [runs] { *runs += 10; });
  Barrier();
  EXPECT_EQ(*runs, 11);
}

INSTANTIATE_TEST_SUITE_P(, CoalescedPosts, testing::Bool(), [](const auto& instance) {
  return std::string(instance.param ? "ByKeyWithFlag" : "ByText");
});

TEST_F(VendorSdkExecutorTest, TellsByTheFlagOfAKeyThatItsTaskIsQueuedOrRuns) {
  CoalescedKey key{"key"};
  EXPECT_FALSE(key.inFlight);
  const auto gate = Gate::Hold(executor);
  const auto task = std::make_shared<Gate>();
  executor.PostCoalesced(key, [task] { task->Pass(); });
  EXPECT_TRUE(key.inFlight);
  gate->Open();
  task->entered.wait();
  EXPECT_TRUE(key.inFlight);
  EXPECT_TRUE(executor.coalescedKeys.contains("key"));
  task->Open();
  Barrier();
  EXPECT_FALSE(key.inFlight);
  // One text is one key, whichever form named it.
  const auto again = Gate::Hold(executor);
  const auto runs = std::make_shared<int>(0);
  executor.PostCoalesced("key", [runs] { *runs += 1; });
  executor.PostCoalesced(key, [runs] { *runs += 10; });
  EXPECT_FALSE(key.inFlight);
  again->Open();
  Barrier();
  EXPECT_EQ(*runs, 1);
}

TEST_F(VendorSdkExecutorTest, ATaskMayItselfQueueWork) {
  const auto ran = std::make_shared<std::vector<int>>();
  const auto done = std::make_shared<std::latch>(1);
  executor.Enqueue([this, ran, done] {
    executor.Enqueue([ran, done] {
      ran->push_back(2);
      done->count_down();
    });
    ran->push_back(1);
  });
  done->wait();
  EXPECT_EQ(*ran, (std::vector<int>{1, 2}));
}

TEST_F(VendorSdkExecutorTest, RunsTheIdleTaskOnItsThreadAtTheEndOfAnIntervalWithoutWork) {
  const auto idle = std::make_shared<std::latch>(3);
  const auto thread = std::make_shared<std::thread::id>();
  executor.SetIdleTask([idle, thread] {
    if (!idle->try_wait()) {
      *thread = std::this_thread::get_id();
      idle->count_down();
    }
  });
  idle->wait();
  EXPECT_EQ(*thread, executor.worker.get_id());
  executor.SetIdleTask({});
}

TEST_F(VendorSdkExecutorTest, SwallowsWhatTheIdleTaskThrowsAndGoesOn) {
  SetLastError("earlier");
  const auto idle = std::make_shared<std::atomic<int>>(0);
  executor.SetIdleTask([idle] {
    ++*idle;
    throw 5;
  });
  EXPECT_TRUE(Eventually([&idle] { return *idle >= 3; }));
  EXPECT_EQ(GetLastErrorString(), "earlier");
}

// The interval never passes here, so that every run of the idle task would be a wrong one.
TEST(VendorSdkExecutor, DoesNotRunTheIdleTaskWhileWorkArrives) {
  VendorSdkExecutor executor("Test", std::chrono::hours(1));
  const auto idle = std::make_shared<std::atomic<int>>(0);
  executor.SetIdleTask([idle] { ++*idle; });
  for (int i = 0; i < 1000; ++i) {
    executor.Enqueue([] {});
    executor.SetIdleTask([idle] { ++*idle; });
    executor.wake.notify_all();
  }
  ASSERT_TRUE(executor.InvokeVoid([] {}, kLong));
  executor.SetIdleTask([idle] { ++*idle; });
  ASSERT_TRUE(executor.InvokeVoid([] {}, kLong));
  EXPECT_EQ(*idle, 0);
}

// How often the owner thread has gone to sleep so far.
long SleepsOfOwner(VendorSdkExecutor& executor) {
  const auto sleeps = executor.Invoke(
      [] {
        rusage usage = {};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
      },
      kLong);
  return sleeps.value_or(-1);
}

TEST(VendorSdkExecutor, WakesForAnIdleTaskAloneAndElseForWork) {
  constexpr int kIntervals = 200;
  // What the calls of this test may add.
  constexpr long kFewSleeps = 50;
  VendorSdkExecutor executor("Test", milliseconds(1));
  const long before = SleepsOfOwner(executor);
  std::this_thread::sleep_for(kIntervals * executor.idleInterval);
  EXPECT_LT(SleepsOfOwner(executor) - before, kFewSleeps);

  const auto idle = std::make_shared<std::latch>(kIntervals);
  executor.SetIdleTask([idle] {
    if (!idle->try_wait()) {
      idle->count_down();
    }
  });
  idle->wait();
  // On a slow machine an interval may be over before the owner thread comes to sleep.
  EXPECT_GE(SleepsOfOwner(executor) - before, kIntervals / 2);
}

TEST(VendorSdkExecutor, DrainsItsQueueBeforeItEndsAndRefusesWhatComesMeanwhile) {
  auto executor = std::make_unique<VendorSdkExecutor>("Draining", milliseconds(10));
  const auto gate = Gate::Hold(*executor);
  const auto ran = std::make_shared<std::vector<int>>();
  for (int i = 0; i < 10; ++i) {
    executor->Enqueue([ran, i] { ran->push_back(i); });
  }
  executor->PostCoalesced("poll", [ran] { ran->push_back(10); });
  VendorSdkExecutor& draining = *executor;
  std::thread destroyer([executor = std::move(executor)]() mutable { executor.reset(); });
  // Refused once the destruction has begun; what was taken before it counts as work like any.
  EXPECT_TRUE(Eventually([&draining] { return !draining.Enqueue([] {}); }));

  EXPECT_EQ(draining.Invoke([ran] { return ran->size(); }, kLong), std::nullopt);
  EXPECT_EQ(GetLastErrorString(), "Draining SDK worker is shutting down");
  SetLastError("");
  EXPECT_FALSE(draining.InvokeVoid([ran] { ran->push_back(-1); }, kLong));
  EXPECT_EQ(GetLastErrorString(), "Draining SDK worker is shutting down");
  SetLastError("earlier");
  draining.PostCoalesced("other", [ran] { ran->push_back(-1); });
  EXPECT_EQ(GetLastErrorString(), "earlier");

  gate->Open();
  destroyer.join();
  EXPECT_EQ(*ran, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

// A caller that waits on a pool thread may wake when the executor is gone.
TEST(VendorSdkExecutor, TellsTheOutcomeAlsoAfterItsOwnEnd) {
  auto executor = std::make_unique<VendorSdkExecutor>("Gone", milliseconds(10));
  const auto gate = Gate::Hold(*executor);
  std::latch waiting{1};
  std::thread caller([&executor, &waiting] {
    waiting.count_down();
    EXPECT_FALSE(executor->InvokeVoid([] { throw std::runtime_error("late"); }, kLong));
  });
  waiting.wait();
  EXPECT_TRUE(Eventually([&executor] {
    const std::lock_guard lock(executor->mutex);
    return executor->queue.size() == 1;
  }));
  gate->Open();
  executor.reset();
  caller.join();
  EXPECT_EQ(GetLastErrorString(), "Gone SDK call failed: late");
}

TEST(VendorSdkExecutor, RunsALastTaskBehindTheQueuedOnesAndOnlyOnce) {
  const auto ran = std::make_shared<std::vector<int>>();
  {
    VendorSdkExecutor executor("Test", milliseconds(10));
    executor.Enqueue([ran] { ran->push_back(1); });
    executor.Shutdown([ran] { ran->push_back(2); });
    EXPECT_EQ(*ran, (std::vector<int>{1, 2}));
    executor.Shutdown([ran] { ran->push_back(3); });
    EXPECT_FALSE(executor.Enqueue([] {}));
  }
  EXPECT_EQ(*ran, (std::vector<int>{1, 2}));
}

TEST(VendorSdkExecutor, ReportsALastTaskThatFailsAndEndsAllTheSame) {
  VendorSdkExecutor executor("Test", milliseconds(10));
  executor.Shutdown([] { throw std::runtime_error("stuck lens"); });
  EXPECT_EQ(GetLastErrorString(), "Test SDK call failed: stuck lens");
  EXPECT_FALSE(executor.worker.joinable());
}

}  // namespace
}  // namespace ostrel_native
