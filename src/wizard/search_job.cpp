#include "wizard/search_job.h"

#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {
// The job whose thread runs; jobs start and end on the user-interface thread.
CSearchJob*& Running() {
  static CSearchJob* running = nullptr;
  return running;
}
std::unique_ptr<CSearchJob>& Lingering() {
  static std::unique_ptr<CSearchJob> lingering;
  return lingering;
}
}  // namespace

CSearchJob::CSearchJob(std::vector<int32_t> dupeTypes) : types_(std::move(dupeTypes)) {}

CSearchJob::~CSearchJob() {
  Stop();
  Wait();
  if (Running() == this) Running() = nullptr;
}

void CSearchJob::Start() {
  start_ = std::chrono::steady_clock::now();
  thread_ = std::thread([this] { Run(); });
  Running() = this;
}

void CSearchJob::StopRunning() {
  if (CSearchJob* job = Running()) {
    job->Stop();
    job->Wait();
  }
  Lingering().reset();
}

void CSearchJob::Linger(std::unique_ptr<CSearchJob> job) {
  StopRunning();
  job->Stop();
  Lingering() = std::move(job);
}

void CSearchJob::Wait() {
  if (thread_.joinable()) thread_.join();
}

int64_t CSearchJob::ElapsedSeconds() const {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_).count();
}

CSearchJob::Progress CSearchJob::LastProgress() const {
  std::lock_guard lock(mutex_);
  return progress_;
}

void CSearchJob::SetActionText(int32_t actionResourceId) {
  std::lock_guard lock(mutex_);
  progress_.actionId = actionResourceId;
}

// Called from the search's threads.
bool CSearchJob::UpdateProgress(int32_t resourceId, int32_t done, int32_t total) {
  if (StopAsked()) return false;
  std::lock_guard lock(mutex_);
  progress_.resourceId = resourceId;
  progress_.done = done;
  progress_.total = total;
  return true;
}

void CSearchJob::Run() {
  CDupeSearch search(this);
  std::map<int32_t, std::shared_ptr<CList>> found;
  std::exception_ptr error;
  try {
    search.FindDupesInStore(types_, [&found](int32_t type, std::shared_ptr<CList> sets) {
      if (sets) found[type] = std::move(sets);
    });
  } catch (const Error& e) {
    error = std::make_exception_ptr(search.NamingFailedCard(e));
  } catch (...) {
    error = std::current_exception();
  }
  {
    std::lock_guard lock(mutex_);
    results_ = std::move(found);
    stopped_ = search.IsStopped() || results_.size() < types_.size();
    error_ = error;
  }
  finished_.store(true, std::memory_order_release);
}

bool CSearchJob::Stopped() const {
  std::lock_guard lock(mutex_);
  return stopped_;
}

std::map<int32_t, std::shared_ptr<CList>> CSearchJob::TakeResults() {
  std::lock_guard lock(mutex_);
  if (error_) std::rethrow_exception(error_);
  return std::move(results_);
}

}  // namespace ombrel
