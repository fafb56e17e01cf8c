#include "host/play/Address.h"

#include <map>
#include <utility>

#include <fmt/format.h>

#include "agent/MountCatalog.h"
#include "runtime/Assert.h"
#include "runtime/Dir.h"

namespace Host {
namespace {

using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::RecordType;
using Vesk::ValueType;

constexpr std::string_view agentWord = "agent";

std::string nameOfBytes(std::string_view key) {
  return Vesk::fromBytes<std::string>(key);
}

/// Cuts the leading name off the text.
std::string_view takeName(std::string_view& rest) {
  const std::size_t end = std::min(rest.find_first_of(".[:/"), rest.size());
  const std::string_view name = rest.substr(0, end);
  rest.remove_prefix(end);
  return name;
}

/// Cuts a key in brackets off the text; brackets and quotes within it may nest.
std::string takeKey(std::string_view& rest) {
  int depth = 0;
  bool quotes = false;
  for (std::size_t i = 0; i < rest.size(); ++i) {
    const char c = rest[i];
    if (quotes) {
      if (c == '\\') ++i;
      if (c == '"') quotes = false;
      continue;
    }
    if (c == '"') quotes = true;
    if (c == '[') ++depth;
    if (c != ']' || --depth > 0) continue;
    std::string key(rest.substr(1, i - 1));
    rest.remove_prefix(i + 1);
    return key;
  }
  throw AddressError(fmt::format("'{}': a bracket does not close", rest));
}

std::size_t leafCount(const ValueType& type) {
  if (type.fields().empty()) return 1;
  std::size_t count = 0;
  for (const auto& member : type.fields())
    count += leafCount(*member.type);
  return count;
}

/// The next n comma-separated leaves of a text, quotes and all.
std::string_view takeLeaves(std::string_view& rest, std::size_t n, bool& ended) {
  bool quotes = false;
  std::size_t i = 0;
  for (; i < rest.size(); ++i) {
    if (rest[i] == '\\' && quotes) {
      ++i;
    } else if (rest[i] == '"') {
      quotes = !quotes;
    } else if (rest[i] == ',' && !quotes && --n == 0) {
      break;
    }
  }
  const std::string_view leaves = rest.substr(0, std::min(i, rest.size()));
  ended = i >= rest.size();
  rest.remove_prefix(std::min(i + 1, rest.size()));
  return leaves;
}

/// Follows the attributes of an address until a value or a collection ends it.
class Resolver {
 public:
  Resolver(Address& address, std::string_view rest)
      : address_(address), rest_(rest), type_(address.rootType) {}

  void run(char separator) {
    bool first = true;
    while (!rest_.empty()) {
      const char c = rest_.front();
      if (c != (first ? separator : '.'))
        throw AddressError(
            fmt::format("'{}' where '{}' is expected", rest_, first ? separator : '.'));
      rest_.remove_prefix(1);
      first = false;
      const std::string_view name = takeName(rest_);
      if (type_ != nullptr) {
        attribute(name);
      } else {
        member(name);
      }
    }
  }

 private:
  void attribute(std::string_view name) {
    const FieldInfo* field = type_->field(name);
    if (field == nullptr)
      throw AddressError(fmt::format("{} has no attribute '{}'", type_->name(), name));
    AddressStep step{field, std::nullopt};
    if (rest_.starts_with('[')) {
      if (!field->isCollection())
        throw AddressError(
            fmt::format("{}.{} is no collection and takes no key", type_->name(), name));
      step.key = bytesOfText(*field->keyType, takeKey(rest_));
    }
    if (isDirectoryField(*field) && step.key) {
      enterDirectory(*step.key);
      return;
    }
    address_.steps.push_back(step);
    if (step.leadsToEntity()) {
      type_ = &field->targetType();
      return;
    }
    type_ = nullptr;
    if (field->kind == FieldKind::value || (field->kind == FieldKind::valueMap && step.key))
      value_ = field->valueType;
  }

  void enterDirectory(const std::string& key) {
    if (address_.inProcess || !address_.steps.empty())
      throw AddressError("an entry of a directory is named by its path");
    address_.path += "/" + nameOfBytes(key);
    const auto info = pathInfo(address_.path);
    if (!info) throw AddressError(fmt::format("path '{}' is not known", address_.path));
    address_.rootType = type_ = info->type;
    address_.shared = info->shared;
  }

  void member(std::string_view name) {
    if (value_ != nullptr) {
      for (std::size_t i = 0; i < value_->fields().size(); ++i) {
        if (value_->fields()[i].name != name) continue;
        address_.members.push_back(i);
        value_ = value_->fields()[i].type;
        return;
      }
      throw AddressError(fmt::format("{} has no member '{}'", value_->name(), name));
    }
    throw AddressError(fmt::format("'{}' lies below something that has no attributes", name));
  }

  Address& address_;
  std::string_view rest_;
  const RecordType* type_;
  const ValueType* value_ = nullptr;
};

}  // namespace

bool isDirectoryField(const FieldInfo& field) {
  return &field == Vesk::Dir::veskType().fields().front();
}

bool isIdentity(const FieldInfo& field) {
  return field.isKey ||
         (field.kind == FieldKind::value && (field.name == "name" || field.name == "af"));
}

std::optional<PathInfo> pathInfo(std::string_view path) {
  if (path.empty() || path.front() == '/' || path.back() == '/') return std::nullopt;
  if (const auto* mount = Corvane::findMountPath(path)) {
    const RecordType* type = mount->recordType();
    if (type == nullptr) return std::nullopt;
    return PathInfo{type, mount->store() != Corvane::Store::stateDb, true};
  }
  const std::string below = std::string(path) + "/";
  for (const auto& mount : Corvane::mountCatalog())
    if (mount.store() == Corvane::Store::stateDb && mount.path.starts_with(below))
      return PathInfo{&Vesk::Dir::veskType(), false, true};
  if (const RecordType* type = RecordType::find(Corvane::typeNameOfPath(path)))
    return PathInfo{type, false, false};
  return std::nullopt;
}

Address Address::parse(std::string_view text) {
  Address address;
  if (text == agentWord || (text.starts_with(agentWord) && text[agentWord.size()] == '.')) {
    address.inProcess = true;
    address.rootType = RecordType::find("Multicast::Vpn::Agent");
    if (address.rootType == nullptr) throw AddressError("this program has no agent");
    Resolver(address, text.substr(agentWord.size())).run('.');
    return address;
  }
  const std::size_t colon = std::min(text.find(':'), text.size());
  address.path = text.substr(0, colon);
  const auto info = pathInfo(address.path);
  if (!info) throw AddressError(fmt::format("path '{}' is not known", address.path));
  address.rootType = info->type;
  address.shared = info->shared;
  Resolver(address, text.substr(colon)).run(':');
  return address;
}

const RecordType* Address::entityType() const {
  if (steps.empty()) return rootType;
  return steps.back().leadsToEntity() ? &steps.back().field->targetType() : nullptr;
}

const ValueType* Address::valueType() const {
  if (steps.empty()) return nullptr;
  const AddressStep& last = steps.back();
  const ValueType* type = nullptr;
  if (last.field->kind == FieldKind::value || (last.field->kind == FieldKind::valueMap && last.key))
    type = last.field->valueType;
  for (const std::size_t index : members)
    type = type->fields()[index].type;
  return type;
}

std::string Address::text() const {
  std::string text = AddressText(*this).text();
  const ValueType* type = members.empty() ? nullptr : steps.back().field->valueType;
  for (const std::size_t index : members) {
    text += "." + type->fields()[index].name;
    type = type->fields()[index].type;
  }
  return text;
}

AddressText::AddressText(const Address& address)
    : text_(address.inProcess ? std::string(agentWord) : address.path),
      isPath_(!address.inProcess) {
  for (const AddressStep& step : address.steps) {
    AddressText next =
        child(*step.field, step.key ? std::optional<std::string_view>(*step.key) : std::nullopt);
    text_ = std::move(next.text_);
    isPath_ = next.isPath_;
  }
}

AddressText AddressText::child(const FieldInfo& field, std::optional<std::string_view> key) const {
  if (key && isDirectoryField(field)) return {text_ + "/" + nameOfBytes(*key), true};
  std::string text = fmt::format("{}{}{}", text_, isPath_ ? ':' : '.', field.name);
  if (key) text += fmt::format("[{}]", field.keyType->text(*key));
  return {std::move(text), false};
}

AddressText AddressText::entry(const FieldInfo& field, std::string_view key) const {
  if (isDirectoryField(field))
    return {text_.substr(0, text_.rfind(':')) + "/" + nameOfBytes(key), true};
  return {fmt::format("{}[{}]", text_, field.keyType->text(key)), false};
}

std::string bytesOfText(const ValueType& type, std::string_view text) {
  // A lone text may hold the separator of composite values without being quoted.
  const bool quote =
      type.fields().empty() && !text.starts_with('"') && text.find(',') != std::string_view::npos;
  try {
    return type.bytes(quote ? Vesk::quoted(text) : std::string(text));
  } catch (const Vesk::ParseError& error) {
    throw AddressError(
        fmt::format("'{}' does not read as {}: {}", text, type.name(), error.what()));
  } catch (const Ombra::RangeException& error) {
    throw AddressError(
        fmt::format("'{}' does not read as {}: {}", text, type.name(), error.what()));
  }
}

std::string rowBytesOfText(const ValueType& type, std::string_view text) {
  if (!type.hasKey()) return bytesOfText(type, text);
  std::vector<std::string> parts = type.split(type.defaultBytes());
  std::string_view rest = text;
  bool ended = false;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const auto& member = type.fields()[i];
    if (member.isKey) continue;
    if (ended) throw AddressError(fmt::format("'{}' has too few parts for {}", text, type.name()));
    parts[i] = bytesOfText(*member.type, takeLeaves(rest, leafCount(*member.type), ended));
  }
  if (!ended && !text.empty())
    throw AddressError(fmt::format("'{}' has too many parts for {}", text, type.name()));
  std::string bytes;
  for (const std::string& part : parts)
    bytes += part;
  return bytes;
}

Ombra::Ptr<Vesk::Entity> blankEntity(const RecordType& type) {
  static auto& blanks = *new std::map<const RecordType*, Ombra::Ptr<Vesk::Entity>>;
  const auto [it, isNew] = blanks.try_emplace(&type);
  if (isNew && type.canMake()) {
    const FieldInfo* key = type.keyField();
    it->second = type.make(key == nullptr ? std::string() : key->valueType->defaultBytes());
  }
  return it->second;
}

std::string initialValue(const RecordType& type, const FieldInfo& field) {
  const auto blank = blankEntity(type);
  return blank ? field.get(*blank) : field.valueType->defaultBytes();
}

}  // namespace Host
