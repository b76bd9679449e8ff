#pragma once
// ServedTree: one subscription of a mounting peer, the entity at a path of
// this process and everything below it, served for as long as the peer
// keeps the subscription.
//
// The entities are watched by a SharedTree, which every subscription of the
// same entity shares (see SharedTree.h for what is written and when); a
// subscription keeps its place among the tree's subscribers.

#include <cstdint>
#include <memory>
#include <string_view>

#include "Zet/attrlog/SharedTree.h"

namespace Zet {
namespace NboAttrLog {

class ServedTree {
 public:
  using Outlet = SharedTree::Outlet;

  // Counts the entities it serves into `watched` (shared by the trees of
  // one connection), and takes them off again as they go.
  ServedTree(Outlet& outlet, uint32_t subscription, size_t& watched);
  ~ServedTree();
  ServedTree(ServedTree const&) = delete;
  ServedTree& operator=(ServedTree const&) = delete;

  // Writes the snapshot of the entity at path (or notFound) and starts
  // serving it.
  void serve(std::string_view path);
  // Writes update frames for changed entities, oldest change first, until
  // none is left or frames() holds at least limit bytes.
  void writeChanges(size_t limit);

 private:
  SharedTree::Subscriber subscriber_;
  std::shared_ptr<SharedTree> tree_;  // null until served, and for nothing found
};

}  // namespace NboAttrLog
}  // namespace Zet
