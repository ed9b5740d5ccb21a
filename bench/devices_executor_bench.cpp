// What a call through an owner thread costs: there and back, against two threads that hand a flag
// to and fro with a mutex and a condition variable and do nothing else. Wall time, since nearly all
// of it is the two wake-ups.
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "harness.h"
#include "vendor/vendor_sdk_executor.h"

namespace ostrel_native {

namespace {

// One thread that answers, for as long as the object lives.
struct PingPong {
  PingPong() : answerer([this] { Answer(); }) {}
  ~PingPong() {
    Hand(kStop);
    answerer.join();
  }
  PingPong(const PingPong&) = delete;
  PingPong& operator=(const PingPong&) = delete;

  void RoundTrip() {
    Hand(kPing);
    std::unique_lock lock(mutex);
    answered.wait(lock, [this] { return ball == kPong; });
  }

  void Hand(int what) {
    const std::lock_guard lock(mutex);
    ball = what;
    asked.notify_one();
  }

  void Answer() {
    for (;;) {
      std::unique_lock lock(mutex);
      asked.wait(lock, [this] { return ball != kPong; });
      if (ball == kStop) {
        return;
      }
      ball = kPong;
      answered.notify_one();
    }
  }

  static constexpr int kPong = 0;
  static constexpr int kPing = 1;
  static constexpr int kStop = 2;

  std::mutex mutex;
  std::condition_variable asked;
  std::condition_variable answered;
  int ball = kPong;  // guarded by mutex
  std::thread answerer;
};

constexpr int kRounds = 101;
constexpr int kTripsPerRound = 500;

void Report() {
  VendorSdkExecutor executor("Bench", std::chrono::milliseconds(10));
  PingPong pingPong;
  int sum = 0;
  const auto invoke = [&executor, &sum] {
    sum += executor.Invoke([] { return 1; }, std::chrono::seconds(5)).value_or(0);
  };
  const auto handToAndFro = [&pingPong] { pingPong.RoundTrip(); };
  std::vector<double> ours;
  std::vector<double> theirs;
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {
    ours.push_back(bench::SecondsOf(invoke, kTripsPerRound) / kTripsPerRound);
    theirs.push_back(bench::SecondsOf(handToAndFro, kTripsPerRound) / kTripsPerRound);
    ratios.push_back(ours.back() / theirs.back());
  }
  if (sum != kRounds * kTripsPerRound) {
    std::printf("a call failed\n");
  }
  std::printf("%12s %14s %8s\n", "Invoke us", "ping-pong us", "ratio");
  std::printf("%12.2f %14.2f %8.2f\n", bench::Median(ours) * 1e6, bench::Median(theirs) * 1e6,
              bench::Median(ratios));
}

}  // namespace

}  // namespace ostrel_native

int main() {
  std::printf("Round trip through an owner thread; medians of %d rounds of %d, in turns.\n",
              ostrel_native::kRounds, ostrel_native::kTripsPerRound);
  ostrel_native::Report();
  return 0;
}
