#include "lsp/threads.hpp"

#include <exception>

namespace tarnwick::lsp {

bool TaskQueue::push(Task task) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return false;
    tasks_.push_back(std::move(task));
  }
  ready_.notify_one();
  return true;
}

std::optional<Task> TaskQueue::pop() {
  std::unique_lock lock(mutex_);
  ready_.wait(lock, [&] { return closed_ || !tasks_.empty(); });
  if (closed_) return std::nullopt;
  Task task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

void TaskQueue::close() {
  std::deque<Task> dropped;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    dropped.swap(tasks_);
  }
  ready_.notify_all();
}

WorkerPool::WorkerPool(unsigned threads, std::function<void(const char* what)> on_error)
    : on_error_(std::move(on_error)) {
  for (unsigned i = 0; i < threads; ++i) {
    threads_.emplace_back([this] {
      while (std::optional<Task> job = jobs_.pop()) {
        try {
          (*job)();
        } catch (const std::exception& error) {
          on_error_(error.what());
        }
      }
    });
  }
}

WorkerPool::~WorkerPool() {
  jobs_.close();
  for (std::thread& thread : threads_) thread.join();
}

}  // namespace tarnwick::lsp
