// The threads of a session: a queue of tasks that one thread runs in order, and a pool of
// workers that run background jobs.
#pragma once

#include <concepts>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace tarnwick::lsp {

// A callable run once. Unlike std::function it may own values that cannot be copied, such as
// the Reply to a request.
class Task {
 public:
  Task() = default;
  template <typename F>
  requires std::invocable<F&> &&(!std::same_as<std::decay_t<F>, Task>)Task(F f)
      : callable_(std::make_unique<Holder<F>>(std::move(f))) {}  // NOLINT: implicit

  void operator()() { callable_->call(); }
  explicit operator bool() const { return callable_ != nullptr; }

 private:
  struct Callable {
    virtual ~Callable() = default;
    virtual void call() = 0;
  };
  template <typename F>
  struct Holder final : Callable {
    explicit Holder(F f) : f(std::move(f)) {}
    void call() override { f(); }
    F f;
  };
  std::unique_ptr<Callable> callable_;
};

// Tasks from any thread, taken in order. Once closed it takes no more and hands out none.
class TaskQueue {
 public:
  // False when the queue is closed (the task is dropped).
  bool push(Task task);
  // The next task, waiting for one; none once the queue is closed.
  std::optional<Task> pop();
  // Closes the queue and drops the tasks still in it (outside the lock: a dropped task may
  // push, which is then refused).
  void close();

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<Task> tasks_;  // guarded by mutex_
  bool closed_ = false;     // guarded by mutex_
};

// Threads that run jobs from a queue. A job that throws is logged by `on_error` and dropped.
class WorkerPool {
 public:
  WorkerPool(unsigned threads, std::function<void(const char* what)> on_error);
  // Drops the jobs not started and waits for those running.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  void run(Task job) { jobs_.push(std::move(job)); }

 private:
  TaskQueue jobs_;
  std::function<void(const char*)> on_error_;
  std::vector<std::thread> threads_;
};

}  // namespace tarnwick::lsp
