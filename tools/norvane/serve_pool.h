// The threads that answer `serve`'s connections: a fixed number, and a bounded
// line of accepted connections waiting for one. When the line is full the
// server stops accepting, so further clients wait in the kernel's listen
// backlog instead of in our memory: a flood of scrapes costs neither memory nor
// file descriptors beyond these bounds.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace NorvaneCli {

class BoundedPool : public httplib::TaskQueue {
 public:
  BoundedPool(size_t threads, size_t waiting);
  ~BoundedPool() override;
  // Blocks the accepting thread while `waiting` connections already wait.
  void enqueue(std::function<void()> fn) override;
  // Lets the threads finish what is queued and running, then joins them.
  void shutdown() override;

 private:
  void Work();
  const size_t limit_;
  std::mutex lock_;
  std::condition_variable ready_, room_;
  std::deque<std::function<void()>> jobs_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace NorvaneCli
