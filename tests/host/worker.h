// A thread that does what it is told, one thing after the other: for tests in
// which several threads take turns.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace host_test {

class Worker;

// Something a worker was told to do.
template <class Result>
struct Started {
  std::future<Result> future;
  const Worker *worker;

  Result get() { return future.get(); }
  bool isDone() const {
    return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }
};

class Worker {
 public:
  Worker() : thread_([this] { work(); }) {}
  // Ends the thread once it has done everything.
  ~Worker() { end(); }
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  // Has it done, some time.
  template <class Function>
  auto start(Function function) {
    using Result = std::invoke_result_t<Function>;
    auto task = std::make_shared<std::packaged_task<Result()>>(std::move(function));
    {
      const std::lock_guard guard(mutex_);
      tasks_.push_back([task] { (*task)(); });
    }
    changed_.notify_one();
    return Started<Result>{task->get_future(), this};
  }

  // Has it done now.
  template <class Function>
  auto run(Function function) {
    return start(std::move(function)).get();
  }

  void end() {
    if (!thread_.joinable()) return;
    {
      const std::lock_guard guard(mutex_);
      ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }

  // Whether it sleeps in the midst of what it was told.
  bool isBlocked() const {
    if (!busy_) return false;
    std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
    std::string line;
    std::getline(file, line);
    // The state follows the name, which is in parentheses.
    const size_t end = line.rfind(')');
    return end != std::string::npos && end + 2 < line.size() && line[end + 2] == 'S' && busy_;
  }

 private:
  void work() {
    id_ = static_cast<int>(syscall(SYS_gettid));
    std::unique_lock guard(mutex_);
    for (;;) {
      changed_.wait(guard, [this] { return ended_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      const std::function<void()> task = std::move(tasks_.front());
      tasks_.pop_front();
      guard.unlock();
      busy_ = true;
      task();
      busy_ = false;
      guard.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> tasks_;
  bool ended_ = false;
  std::atomic<int> id_{0};
  std::atomic<bool> busy_{false};
  std::thread thread_;
};

// Whether what was started waits for something, not only now but for good.
template <class Result>
bool isWaiting(const Started<Result> &started) {
  for (int seen = 0; seen < 10;) {
    if (started.isDone()) return false;
    seen = started.worker->isBlocked() ? seen + 1 : 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Whether it comes back in the end.
template <class Result>
bool comesBack(const Started<Result> &started) {
  return started.future.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
}

}  // namespace host_test
