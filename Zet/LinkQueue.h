#pragma once
// LinkQueue: an ordered queue in which every member keeps the index it was
// given when enqueued. Indices grow from 0 and are never reused, so a member
// can be named by its index for as long as it is queued. Not thread-safe.

#include <deque>
#include <limits>
#include <utility>

#include "Zet/Exception.h"

namespace Zet {

template <class Value, class Index = unsigned>
class LinkQueue {
 public:
  size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  // Index of the head member, and one past the tail.
  Index headIndex() const { return head_; }
  Index tailIndex() const { return static_cast<Index>(head_ + members_.size()); }

  // Appends a value; returns its index. Throws RangeException "linkqueue
  // index space full" once every index has been used.
  Index enq(Value v) {
    if (exhausted_) throwRangeException("linkqueue index space full");
    Index index = tailIndex();
    members_.push_back(std::move(v));
    if (index == std::numeric_limits<Index>::max()) exhausted_ = true;
    return index;
  }
  // Removes and returns the head; a default value when empty.
  Value deq() {
    if (members_.empty()) return Value();
    Value v = std::move(members_.front());
    members_.pop_front();
    ++head_;
    return v;
  }
  Value const& front() const { return at(head_); }
  // The member with this index; RangeException "linkqueue index out of range"
  // when no queued member has it.
  Value const& at(Index index) const {
    if (index < head_ || static_cast<size_t>(index - head_) >= members_.size()) throwRangeException("linkqueue index out of range");
    return members_[static_cast<size_t>(index - head_)];
  }
  void clear() {
    head_ = tailIndex();
    members_.clear();
  }

  auto begin() const { return members_.begin(); }
  auto end() const { return members_.end(); }

 private:
  std::deque<Value> members_;
  Index head_ = 0;
  bool exhausted_ = false;
};

}  // namespace Zet
