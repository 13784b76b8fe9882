#include "serve_pool.h"

namespace NorvaneCli {

BoundedPool::BoundedPool(size_t threads, size_t waiting) : limit_(waiting) {
  for (size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { Work(); });
}

BoundedPool::~BoundedPool() { shutdown(); }

void BoundedPool::enqueue(std::function<void()> fn) {
  std::unique_lock<std::mutex> hold(lock_);
  room_.wait(hold, [this] { return jobs_.size() < limit_ || stopping_; });
  jobs_.push_back(std::move(fn));
  ready_.notify_one();
}

void BoundedPool::shutdown() {
  {
    std::lock_guard<std::mutex> hold(lock_);
    if (stopping_ && threads_.empty()) return;
    stopping_ = true;
  }
  ready_.notify_all();
  room_.notify_all();
  for (auto& thread : threads_) thread.join();
  threads_.clear();
}

void BoundedPool::Work() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock<std::mutex> hold(lock_);
      ready_.wait(hold, [this] { return !jobs_.empty() || stopping_; });
      if (jobs_.empty()) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    room_.notify_one();
    job();
  }
}

}  // namespace NorvaneCli
