#pragma once
// ConfigCollection: configuration file names waiting to be read, in the order
// they were enqueued.
//
// Each name keeps the index it was given when enqueued (indices grow from 0
// and are never reused; see Zet/LinkQueue.h), so a pending file can be named
// by its index. A value: copies are independent. Not thread-safe.

#include "Zet/LinkQueue.h"
#include "Zet/String8.h"

namespace Zet {

class ConfigCollection {
 public:
  // Appends a name; returns its index. RangeException "linkqueue index space
  // full" once every index has been used.
  unsigned configEnq(String8 const& name) { return queue_.enq(name); }
  // Removes and returns the first name; empty when there is none.
  String8 configDeq() { return queue_.deq(); }
  // The queued name with this index; RangeException "linkqueue index out of
  // range" when no queued name has it.
  String8 const& config(unsigned index) const { return queue_.at(index); }

  size_t size() const { return queue_.size(); }
  bool empty() const { return queue_.empty(); }
  // Indices of the first name and one past the last.
  unsigned headIndex() const { return queue_.headIndex(); }
  unsigned tailIndex() const { return queue_.tailIndex(); }
  auto begin() const { return queue_.begin(); }
  auto end() const { return queue_.end(); }

 private:
  LinkQueue<String8> queue_;
};

}  // namespace Zet
