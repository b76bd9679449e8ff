#pragma once
// SubstitutionsCollection: the values that "${NAME}" stands for in
// configuration files, by name.
//
// A value: copies are independent (the underlying HashMap is not copyable, so
// copying re-inserts every pair). Iteration visits the pairs in no particular
// order. Not thread-safe.

#include "Zet/HashMap.h"
#include "Zet/String8.h"

namespace Zet {

class SubstitutionsCollection {
 public:
  SubstitutionsCollection() = default;
  SubstitutionsCollection(SubstitutionsCollection const& other) { insertAll(other); }
  SubstitutionsCollection& operator=(SubstitutionsCollection const& other) {
    if (this != &other) {
      map_.clear();
      insertAll(other);
    }
    return *this;
  }

  // The value for name; empty when name has none.
  String8 map(String8 const& name) const { return map_.value(name); }
  // Whether name has a value (an empty one counts).
  bool mapHas(String8 const& name) const { return map_.find(name) != nullptr; }
  // Sets the value for name, replacing any earlier one.
  void mapIs(String8 const& name, String8 const& value) { map_.assign(name, value); }
  void mapDel(String8 const& name) { map_.erase(name); }
  void mapDelAll() { map_.clear(); }

  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

 private:
  void insertAll(SubstitutionsCollection const& other) {
    for (auto const& m : other.map_) map_.insert(m.key(), m.value());
  }

  HashMap<String8, String8> map_;
};

}  // namespace Zet
