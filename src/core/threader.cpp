// A small persistent thread pool behind the parallel-for service.  The pool
// starts on first use with one worker fewer than the processor count (the
// calling thread is the remaining worker).  One job runs at a time; a call
// made while the pool is busy -- from another thread, or nested inside a
// routine -- runs serially on its caller, which keeps the service free of
// deadlocks without changing what is computed.
#include "qor/core.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

class Pool {
 public:
  static Pool &instance() {
    static Pool *pool = new Pool();  // never destroyed: workers may outlive statics
    return *pool;
  }

  int limit() const { return limit_; }

  bool try_run(int64_t count, int threads, void *context, qor_threader_routine routine) {
    std::unique_lock<std::mutex> busy(job_mutex_, std::try_to_lock);
    if (!busy.owns_lock()) return false;
    start_workers();
    const int helpers = std::min<int64_t>({static_cast<int64_t>(threads) - 1,
                                           static_cast<int64_t>(workers_.size()), count - 1});
    {
      std::lock_guard<std::mutex> g(m_);
      count_ = count;
      context_ = context;
      routine_ = routine;
      next_.store(0, std::memory_order_relaxed);
      wanted_ = helpers;
      pending_ = helpers;
      ++generation_;
    }
    cv_.notify_all();
    drain(0);
    std::unique_lock<std::mutex> l(m_);
    done_cv_.wait(l, [&] { return pending_ == 0; });
    return true;
  }

 private:
  Pool() {
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    limit_ = static_cast<int>(std::clamp<long>(n, 1, 64));
  }

  void start_workers() {
    if (started_) return;
    started_ = true;
    for (int i = 1; i < limit_; ++i) {
      workers_.emplace_back([this, i] { worker(i); });
      workers_.back().detach();
    }
  }

  void drain(int thread) {
    for (;;) {
      int64_t i = next_.fetch_add(1, std::memory_order_relaxed);
      if (i >= count_) break;
      routine_(i, thread, context_);
    }
  }

  void worker(int id) {
    uint64_t seen = 0;
    for (;;) {
      {
        std::unique_lock<std::mutex> l(m_);
        cv_.wait(l, [&] { return generation_ != seen && id <= wanted_; });
        seen = generation_;
      }
      drain(id);
      std::lock_guard<std::mutex> g(m_);
      if (--pending_ == 0) done_cv_.notify_all();
    }
  }

  int limit_ = 1;
  bool started_ = false;
  std::vector<std::thread> workers_;
  std::mutex job_mutex_;
  std::mutex m_;
  std::condition_variable cv_, done_cv_;
  uint64_t generation_ = 0;
  int wanted_ = 0;
  int pending_ = 0;
  int64_t count_ = 0;
  void *context_ = nullptr;
  qor_threader_routine routine_ = nullptr;
  std::atomic<int64_t> next_{0};
};

}  // namespace

extern "C" void qor_rix_serv_threader_for(int64_t count, int threads, void *context,
                                          qor_threader_routine routine) {
  if (count <= 0 || !routine) return;
  if (threads > 1 && count > 1 && Pool::instance().limit() > 1 &&
      Pool::instance().try_run(count, threads, context, routine))
    return;
  for (int64_t i = 0; i < count; ++i) routine(i, 0, context);
}

extern "C" int qor_rix_serv_threader_get_num_threads_limit(void) {
  return Pool::instance().limit();
}
