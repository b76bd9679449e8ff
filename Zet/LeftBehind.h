#pragma once
// LeftBehind: entities an owner left in the tree when it went (a mount or an
// agent entry removed with its state preserved), remembered under the
// owner's name, so that an owner of that name coming back takes them over
// instead of finding its place taken, while anybody else still does.
//
// A record holds the directory entry the entity was left in, and counts
// only while that entry is current: an entity someone has removed or
// replaced since is nobody's to take over. Records whose entry has gone are
// swept as records are added, so their number stays in proportion to the
// entities still left. Not thread-safe: used on the loop's thread.

#include <string_view>

#include "Zet/Dir.h"
#include "Zet/HashMap.h"

namespace Zet {

class LeftBehind {
 public:
  // `owner` leaves the entity of `entry` (a current entry) behind.
  void leftIs(Name const& owner, Ptr<Dir::Entry> const& entry);
  // The entity `owner` left, when `here` is the entry it was left in and
  // still holds it, and the entity is of type `type` (any type when empty).
  // The record is gone afterwards either way.
  Ptr<Entity> taken(Name const& owner, Ptr<Dir::Entry> const& here, std::string_view type = {});
  size_t size() const { return left_.size(); }

  // The current entry at an absolute path, or null.
  static Ptr<Dir::Entry> entryAt(EntityUriPath const& path);

 private:
  void sweep();

  HashMap<Ptr<Dir::Entry>> left_;
  size_t sweepAt_ = 64;
};

}  // namespace Zet
