#include "AgentEnv/ConfigEvents.h"

#include <utility>

namespace Zet {

bool ConfigEventQueue::post(Batch& batch) {
  Batch next;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return abandoned_ || waiting_.size() < limit_; });
    if (abandoned_) {
      batch.clear();
      return false;
    }
    waiting_.push_back(std::move(batch));
    if (!spare_.empty()) {
      next = std::move(spare_.back());
      spare_.pop_back();
    }
  }
  changed_.notify_all();
  batch = std::move(next);
  batch.events.reserve(kBatchEvents);
  return true;
}

void ConfigEventQueue::close() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

bool ConfigEventQueue::take(Batch& batch) {
  batch.clear();
  Batch applied = std::move(batch);
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (applied.events.capacity() != 0) spare_.push_back(std::move(applied));
    changed_.wait(lock, [&] { return closed_ || !waiting_.empty(); });
    if (waiting_.empty()) return false;
    batch = std::move(waiting_.front());
    waiting_.pop_front();
  }
  changed_.notify_all();
  return true;
}

void ConfigEventQueue::abandon() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    abandoned_ = true;
    waiting_.clear();
  }
  changed_.notify_all();
}

bool ConfigEventQueue::abandoned() {
  std::lock_guard<std::mutex> lock(mutex_);
  return abandoned_;
}

}  // namespace Zet
