#include "Zet/attrlog/ServedTree.h"

namespace Zet {
namespace NboAttrLog {

ServedTree::ServedTree(Outlet& outlet, uint32_t subscription, size_t& watched)
    : subscriber_{outlet, subscription, watched} {}

ServedTree::~ServedTree() {
  if (tree_) tree_->unsubscribe(subscriber_);
}

void ServedTree::serve(std::string_view path) {
  Ptr<Entity> root = globalDir()->entityRef(path);
  if (!root || root->isMirror()) {
    FrameWriter(subscriber_.outlet.frames()).notFound(subscriber_.subscription);
    return;
  }
  tree_ = SharedTree::of(*root);
  tree_->subscribe(subscriber_);
}

void ServedTree::writeChanges(size_t limit) {
  if (tree_) tree_->writeChanges(subscriber_, limit);
}

}  // namespace NboAttrLog
}  // namespace Zet
