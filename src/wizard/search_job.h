// One duplicate search for the wizard, run on a thread of its own so the
// windows stay live: the user-interface thread starts it, looks at its
// progress as often as it likes, may ask it to stop, and takes the sets once
// it has finished. Nothing here touches a window.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ombrel/dupes/dupe_search.h"
#include "ombrel/foundation/clist.h"

namespace ombrel {

class CSearchJob final : private ISearchProgress {
 public:
  // What the search reported last.
  struct Progress {
    int32_t actionId = search_text::kActionOther;  // 701..704
    int32_t resourceId = search_text::kReadingCards;
    int32_t done = 0;
    int32_t total = 0;
  };

  explicit CSearchJob(std::vector<int32_t> dupeTypes);
  // Stops the search and waits for its thread.
  ~CSearchJob() override;
  CSearchJob(const CSearchJob&) = delete;
  CSearchJob& operator=(const CSearchJob&) = delete;

  void Start();
  // Stops the job that is running, if any, and waits for it: before anything
  // else reads or writes the card store, or the manager is replaced.
  static void StopRunning();
  // Keeps a job that was asked to stop until its thread has ended (at the
  // next StopRunning), so the user need not wait for it.
  static void Linger(std::unique_ptr<CSearchJob> job);
  bool Finished() const { return finished_.load(std::memory_order_acquire); }
  // Asks the search to stop at its next progress report.
  void Stop() { stop_.store(true, std::memory_order_release); }
  bool StopAsked() const { return stop_.load(std::memory_order_acquire); }
  Progress LastProgress() const;
  // Whole seconds since Start.
  int64_t ElapsedSeconds() const;
  // Waits for the thread to end.
  void Wait();

  // Once finished: whether the search was stopped before every type was
  // found, and each type's sets (CList of CDupeSet). Raises what the search
  // raised, naming the card it could not read.
  bool Stopped() const;
  std::map<int32_t, std::shared_ptr<CList>> TakeResults();

 private:
  void SetActionText(int32_t actionResourceId) override;
  bool UpdateProgress(int32_t resourceId, int32_t done, int32_t total) override;
  void Run();

  const std::vector<int32_t> types_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> finished_{false};
  std::chrono::steady_clock::time_point start_;
  mutable std::mutex mutex_;  // guards what follows
  Progress progress_;
  std::map<int32_t, std::shared_ptr<CList>> results_;
  bool stopped_ = false;
  std::exception_ptr error_;
};

}  // namespace ombrel
