#include "host/play/Watch.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "host/print/EntityJson.h"
#include "runtime/Dir.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace Host {
namespace {

using Vesk::Entity;
using Vesk::FieldInfo;
using Vesk::FieldKind;

std::string line(const AddressText& at, const std::string& value) {
  return fmt::format("{} = {}", at.text(), value);
}

/// `= value`, or `added` for a row that is nothing but its key.
std::string rowLine(const Entity& entity, const FieldInfo& field, const std::string& key,
                    const AddressText& at) {
  const auto& members = field.valueType->fields();
  const bool onlyKey =
      field.valueType->hasKey() &&
      std::all_of(members.begin(), members.end(), [](const auto& member) { return member.isKey; });
  if (onlyKey) return at.text() + " added";
  // Whoever notes a row does not read it: a mark of damage is for readers.
  return line(at, field.corrupt(entity, key)
                      ? "(corrupt)"
                      : field.valueType->text(field.get(entity, key), false));
}

std::string changeLine(const Entity& entity, const FieldInfo& field, const std::string& key,
                       const AddressText& at) {
  switch (field.kind) {
    case FieldKind::value:
      return line(at, field.valueType->text(field.get(entity), false));
    case FieldKind::reference:
      return line(at, referenceText(field.child(entity).get()));
    case FieldKind::valueSet:
      return at.text() + (field.has(entity, key) ? " added" : " removed");
    default:
      return field.has(entity, key) ? rowLine(entity, field, key, at) : at.text() + " removed";
  }
}

void entityLines(const Entity& entity, const AddressText& at, std::vector<std::string>& lines) {
  lines.push_back(at.text() + " added");
  contentLines(entity, at, lines);
}

void fieldLines(const Entity& entity, const FieldInfo& field, const AddressText& at,
                std::vector<std::string>& lines) {
  switch (field.kind) {
    case FieldKind::value:
      if (field.get(entity) != initialValue(entity.recordType(), field))
        lines.push_back(changeLine(entity, field, {}, at));
      return;
    case FieldKind::reference:
      if (field.child(entity)) lines.push_back(changeLine(entity, field, {}, at));
      return;
    case FieldKind::instance:
      if (const auto child = field.child(entity)) entityLines(*child, at, lines);
      return;
    default:
      break;
  }
  for (const std::string& key : field.keys(entity)) {
    const AddressText own = at.entry(field, key);
    if (field.kind != FieldKind::instanceMap) {
      lines.push_back(changeLine(entity, field, key, own));
    } else if (const auto child = field.child(entity, key)) {
      entityLines(*child, own, lines);
    }
  }
}

}  // namespace

void contentLines(const Entity& entity, const AddressText& at, std::vector<std::string>& lines) {
  for (const FieldInfo* field : entity.recordType().fields()) {
    if (field->isKey || (at.isPath() && isIdentity(*field))) continue;
    fieldLines(entity, *field, at.child(*field, std::nullopt), lines);
  }
}

struct Watch::Ear : Vesk::Listener {
  Ear(Watch* ofWatch, std::size_t ofIndex, Entity* of)
      : Listener(&Ear::call), watch(ofWatch), index(ofIndex), entity(of) {
    attach(of);
  }
  static void call(Listener& self, Ombra::FieldId id, const void* key) {
    auto& ear = static_cast<Ear&>(self);
    const FieldInfo& field = *ear.entity->recordType().fields()[id];
    ear.watch->heard(ear.index, field, key == nullptr ? std::string() : field.keyBytes(key));
  }
  Watch* watch;
  std::size_t index;
  Entity* entity;
};

/// Observes the tree below the end of the way, or of the one attribute there that the address
/// names.
class Watch::Below : public Vesk::TreeObserver {
 public:
  Below(Watch& watch, const FieldInfo* only) : watch_(watch), only_(only) {}

 private:
  AddressText addressOf(const Node& node) const {
    if (node.parent == nullptr) {
      if (only_ == nullptr) return AddressText(watch_.address_);
      Address above = watch_.address_;
      above.steps.pop_back();
      return AddressText(above);
    }
    return addressOf(*node.parent).child(*node.field, keyOf(*node.field, node.key));
  }
  static std::optional<std::string_view> keyOf(const FieldInfo& field, std::string_view key) {
    return field.isCollection() ? std::optional(key) : std::nullopt;
  }
  /// The attribute of the end by which a node is reached.
  [[nodiscard]] bool isMine(const Node* node, const FieldInfo* field) const {
    if (only_ == nullptr) return true;
    for (; node->parent != nullptr; node = node->parent)
      field = node->field;
    return field->name == only_->name;
  }

  void valueChanged(const Node& node, const FieldInfo& field, std::string_view key) override {
    if (!isMine(&node, &field)) return;
    watch_.sink_([&] {
      const AddressText at = addressOf(node).child(field, keyOf(field, key));
      return std::vector<std::string>{changeLine(*node.entity, field, std::string(key), at)};
    });
  }
  void entityCame(const Node& node) override {
    if (!isMine(node.parent, node.field)) return;
    const auto info =
        isDirectoryField(*node.field) ? pathInfo(addressOf(node).text()) : std::nullopt;
    const bool isMount = info && info->fixed;
    std::vector<std::string> lines;
    if (isMount) {
      contentLines(*node.entity, addressOf(node), lines);
      if (lines.empty()) return;
    }
    watch_.sink_([&] {
      if (!isMount) entityLines(*node.entity, addressOf(node), lines);
      return lines;
    });
  }
  void entityWent(const Node& node) override {
    if (!isMine(node.parent, node.field)) return;
    watch_.sink_([&] { return std::vector<std::string>{addressOf(node).text() + " removed"}; });
  }

  Watch& watch_;
  const FieldInfo* only_;
};

Watch::Watch(World& world, Address address, Sink sink)
    : world_(world), address_(std::move(address)), sink_(std::move(sink)) {
  if (!address_.inProcess && !address_.shared) {
    const FieldInfo* entries = Vesk::Dir::veskType().fields().front();
    for (std::string_view rest = address_.path; !rest.empty();) {
      const std::string name(rest.substr(0, rest.find('/')));
      steps_.push_back({entries, Vesk::bytesOf(name)});
      rest.remove_prefix(std::min(rest.size(), name.size() + 1));
    }
    pathSteps_ = steps_.size();
  }
  steps_.insert(steps_.end(), address_.steps.begin(), address_.steps.end());
}

Watch::~Watch() = default;

void Watch::attach() {
  detach();
  Ombra::Ptr<Entity> root;
  if (address_.inProcess) {
    root = world_.agent().root();
  } else if (address_.shared) {
    root = VeskSharedMem::EntityManager::getEntityManager()->peek(address_.path,
                                                                  address_.rootType->name());
  } else {
    root = Halden::StateDatabase::instance().root();
  }
  if (!root) return;
  way_.push_back(root);
  follow(0);
}

void Watch::detach() {
  below_.reset();
  ears_.clear();
  way_.clear();
}

bool Watch::endsAtEntity() const {
  return steps_.empty() || steps_.back().leadsToEntity();
}

Entity* Watch::end() const {
  const std::size_t length = steps_.size() + (endsAtEntity() ? 1 : 0);
  return way_.size() == length && !way_.empty() ? way_.back().get() : nullptr;
}

void Watch::follow(std::size_t from) {
  below_.reset();
  way_.resize(std::min(way_.size(), from + 1));
  ears_.resize(std::min(ears_.size(), from + 1));
  for (std::size_t i = from; i < steps_.size(); ++i) {
    if (ears_.size() <= i) ears_.push_back(std::make_unique<Ear>(this, i, way_[i].get()));
    const AddressStep& step = steps_[i];
    if (!step.leadsToEntity()) break;
    const auto next =
        step.key ? step.field->child(*way_[i], *step.key) : step.field->child(*way_[i]);
    if (!next) break;
    way_.push_back(next);
  }
  observeEnd();
}

void Watch::observeEnd() {
  Entity* const last = end();
  if (last == nullptr) return;
  if (endsAtEntity()) {
    below_ = std::make_unique<Below>(*this, nullptr);
    below_->rootIs(Ombra::Ptr<Entity>(last));
  } else if (steps_.back().field->owns()) {
    below_ = std::make_unique<Below>(*this, steps_.back().field);
    below_->rootIs(Ombra::Ptr<Entity>(last));
  }
}

void Watch::heard(std::size_t index, const FieldInfo& field, const std::string& key) {
  const AddressStep& step = steps_[index];
  if (field.name != step.field->name || (step.key && *step.key != key)) return;
  if (step.leadsToEntity()) return wayChanged(index);
  if (field.owns()) return;  // the observer of the tree notes it
  const Ombra::Ptr<Entity> holder = way_[index];
  sink_([&] {
    AddressText at(address_);
    if (field.isCollection() && !step.key) at = at.entry(field, key);
    return std::vector<std::string>{changeLine(*holder, field, key, at)};
  });
}

void Watch::wayChanged(std::size_t index) {
  const AddressStep& step = steps_[index];
  const auto next =
      step.key ? step.field->child(*way_[index], *step.key) : step.field->child(*way_[index]);
  const Ombra::Ptr<Entity> before = way_.size() > index + 1 ? way_[index + 1] : nullptr;
  if (before == next) return;
  const Ombra::Ptr<Entity> old(end());
  follow(index);
  const Ombra::Ptr<Entity> now(end());
  if (old == now) return;
  std::vector<std::string> lines = goneLines(old);
  for (std::string& text : newLines(isMount(index)))
    lines.push_back(std::move(text));
  if (!lines.empty()) sink_([&] { return lines; });
}

bool Watch::isMount(std::size_t index) const {
  if (index >= pathSteps_) return false;
  std::string_view path = address_.path;
  std::size_t end = 0;
  for (std::size_t i = 0; i <= index; ++i)
    end = path.find('/', i == 0 ? 0 : end + 1);
  const auto info = pathInfo(path.substr(0, end));
  // Everything below a directory that was mounted counts as its content.
  return info && info->fixed && index + 1 == pathSteps_;
}

std::vector<std::string> Watch::goneLines(const Ombra::Ptr<Entity>& old) const {
  if (!old) return {};
  const AddressText at(address_);
  if (endsAtEntity()) return {at.text() + " removed"};
  const AddressStep& last = steps_.back();
  std::vector<std::string> lines;
  if (last.key) {
    if (last.field->has(*old, *last.key)) lines.push_back(at.text() + " removed");
    return lines;
  }
  if (!last.field->isCollection()) {
    fieldLines(*old, *last.field, at, lines);
    if (!lines.empty()) lines = {at.text() + " removed"};
    return lines;
  }
  for (const std::string& key : last.field->keys(*old))
    lines.push_back(at.entry(*last.field, key).text() + " removed");
  return lines;
}

std::vector<std::string> Watch::newLines(bool isMount) const {
  const Entity* now = end();
  if (now == nullptr) return {};
  std::vector<std::string> lines;
  const AddressText at(address_);
  if (endsAtEntity()) {
    if (isMount) {
      contentLines(*now, at, lines);
    } else {
      entityLines(*now, at, lines);
    }
    return lines;
  }
  const AddressStep& last = steps_.back();
  if (!last.key) {
    fieldLines(*now, *last.field, at, lines);
  } else if (last.field->has(*now, *last.key)) {
    lines.push_back(changeLine(*now, *last.field, *last.key, at));
  }
  return lines;
}

}  // namespace Host
