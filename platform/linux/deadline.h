// Work that may block with no time-out of its own (GIO and GSettings wait for the session bus
// for ever when it accepts the connection and never answers), run on a thread of its own so
// that the caller waits for it at most a given time.
//
// A piece of work still running at the deadline is left to end by itself. Until it does, the
// gate refuses further work at once instead of piling threads up behind the same bus.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

namespace tessel::platform {

class DeadlineGate {
 public:
  // The result of `work`, or nothing when it did not end within `limit` (or could not start).
  // `work` must own everything it uses: it may outlive the call. An exception from it (memory
  // exhaustion) counts as a default result, as nothing on that thread could catch it.
  template <typename R>
  std::optional<R> run(std::function<R()> work, std::chrono::milliseconds limit) {
    if (stuck_->load()) return std::nullopt;
    auto job = std::make_shared<Job<R>>();
    try {
      std::thread([job, work = std::move(work), stuck = stuck_]() mutable {
        R result{};
        try {
          result = work();
        } catch (...) {
        }
        // Everything the work owns goes before the caller hears of the end, which may be the
        // last thing the process does.
        work = nullptr;
        std::lock_guard<std::mutex> lock(job->mutex);
        job->result = std::move(result);
        job->finished = true;
        if (job->abandoned) stuck->store(false);
        job->done.notify_all();
      }).detach();
    } catch (const std::system_error&) {
      return std::nullopt;
    }
    std::unique_lock<std::mutex> lock(job->mutex);
    if (!job->done.wait_for(lock, limit, [&] { return job->finished; })) {
      job->abandoned = true;
      stuck_->store(true);
      return std::nullopt;
    }
    return std::move(job->result);
  }

 private:
  template <typename R>
  struct Job {
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    bool abandoned = false;
    std::optional<R> result;
  };

  // Shared with the threads, which may outlive the gate.
  std::shared_ptr<std::atomic<bool>> stuck_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace tessel::platform
