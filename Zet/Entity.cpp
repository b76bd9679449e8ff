#include "Zet/Entity.h"

#include <string>

namespace Zet {

void Entity::NotifieeConst::bind(Ptr<Entity const> notifier) {
  if (notifier == notifier_) return;
  if (notifier_) notifier_->notifieeRemove(this);
  notifier_ = std::move(notifier);
  if (notifier_) notifier_->notifieeAdd(this);
}

thread_local int Entity::MirrorWriteScope::depth_ = 0;

void Entity::refuseMirrorWrite() const {
  throw PermissionException(
      format("%s is mounted from another process and can only be changed there", fullName().charPtr()));
}

void Entity::isNondestructingIs(bool v) {
  if (v == isNondestructing()) return;
  flagIs(kNondestructing, v);
  notify<NotifieeConst>([](NotifieeConst& n) { n.onIsNondestructing(); });
}

void Entity::zeroReferencesIs(bool v) {
  if (v == zeroReferences()) return;
  flagIs(kZeroReferences, v);
  notify<NotifieeConst>([](NotifieeConst& n) { n.onZeroReferences(); });
}

String8 Entity::attributeString(AttributeId id) const {
  if (id == kNameAttributeId) return "name";
  if (id == kParentAttributeId) return "parent";
  if (auto const* a = fwkType().attribute(id)) return String8(a->name);
  return "unknown";
}

String8 Entity::attributeValue(AttributeId id) const {
  if (id == kNameAttributeId) return name_;
  if (id == kParentAttributeId) return parent() ? parent()->fullName() : String8();
  auto const* a = fwkType().attribute(id);
  if (!a) throwRangeException(format("no attribute 0x%x in %.*s", id, int(fwkType().name.size()), fwkType().name.data()));
  return a->read(*this);
}

void Entity::attributeValueIs(AttributeId id, std::string_view text) {
  auto const* a = fwkType().attribute(id);
  if (!a || !a->write)
    throwRangeException(format("attribute 0x%x of %.*s cannot be written", id, int(fwkType().name.size()),
                               fwkType().name.data()));
  a->write(*this, text);
}

std::vector<String8> Entity::zetAuditErrors() const {
  std::vector<String8> failed;
  for (auto const& rule : fwkType().auditRules)
    if (!rule.holds(*this)) failed.emplace_back(rule.label);
  return failed;
}

size_t Entity::fullNameSize(std::string_view child) const {
  if (!parent() && child.empty()) return name_.size();
  size_t size = child.empty() ? 0 : child.size() + 1;
  Entity const* top = this;
  for (; top->parent(); top = top->parent()) size += top->name_.size() + 1;
  return top->name_.view() == "/" ? size : size + top->name_.size();
}

// Walks up once to size the text, then writes the names from the end, so a
// tree of any depth is named without recursion in one allocation. A root
// named "/" is the leading separator itself.
String8 Entity::fullName(std::string_view child) const {
  if (!parent() && child.empty()) return name_;
  size_t size = fullNameSize(child);
  std::string path(size, '/');
  size_t end = size - child.size();
  path.replace(end, child.size(), child);
  if (!child.empty()) --end;  // the separator, already '/'
  for (Entity const* at = this; at->parent() || at->name_.view() != "/"; at = at->parent()) {
    std::string_view name = at->name_.view();
    end -= name.size();
    path.replace(end, name.size(), name);
    if (!at->parent()) break;
    --end;  // the separator, already '/'
  }
  return String8(path);
}

void EntityHandle::attributeValueIs(AttributeId id, std::string_view text) const {
  if (!writable_) throw PermissionException("attempting to modify a const instance");
  const_cast<Entity*>(entity_.ptr())->attributeValueIs(id, text);
}

}  // namespace Zet
