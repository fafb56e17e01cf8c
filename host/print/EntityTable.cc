#include "host/print/EntityTable.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "host/print/EntityJson.h"
#include "runtime/Dir.h"

namespace Host {
namespace {

using Vesk::Entity;
using Vesk::FieldInfo;
using Vesk::FieldKind;
using Vesk::ValueType;

constexpr std::size_t lineLength = 100;

bool isEmpty(const Entity& entity, const FieldInfo& field) {
  switch (field.kind) {
    case FieldKind::value:
      return false;
    case FieldKind::reference:
    case FieldKind::instance:
      return field.child(entity) == nullptr;
    default:
      return field.count(entity) == 0;
  }
}

/// The entries of a directory are of types of their own.
bool isDirectory(const FieldInfo& field) {
  return &field == Vesk::Dir::veskType().fields().front();
}

struct Columns {
  std::vector<std::vector<std::string>> rows;

  /// Lines with every column as wide as its widest text; a first row of headings stands apart by
  /// its ink.
  [[nodiscard]] std::string lines(std::size_t indent, const Style& style) const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
      widths.resize(std::max(widths.size(), row.size()));
      for (std::size_t i = 0; i < row.size(); ++i)
        widths[i] = std::max(widths[i], row[i].size());
    }
    std::string out;
    for (const auto& row : rows) {
      std::string line(indent, ' ');
      for (std::size_t i = 0; i < row.size(); ++i)
        line += i + 1 == row.size() ? row[i] : fmt::format("{:<{}}  ", row[i], widths[i]);
      line.erase(line.find_last_not_of(' ') + 1);
      out += (&row == &rows.front() ? style.in(Ink::faint, line) : line) + "\n";
    }
    return out;
  }
};

/// One column per member; the only value of a row goes under the attribute's name.
void addHeadings(const ValueType& type, std::string_view name, bool withKey,
                 std::vector<std::string>& row) {
  if (type.fields().empty()) {
    row.emplace_back(name);
    return;
  }
  for (const auto& member : type.fields())
    if (withKey || !member.isKey) addHeadings(*member.type, member.name, true, row);
}

void addCells(const ValueType& type, std::string_view bytes, bool withKey,
              std::vector<std::string>& row) {
  if (type.fields().empty()) {
    row.push_back(type.text(bytes));
    return;
  }
  const auto parts = type.split(bytes);
  for (std::size_t i = 0; i < parts.size(); ++i)
    if (withKey || !type.fields()[i].isKey) addCells(*type.fields()[i].type, parts[i], true, row);
}

}  // namespace

std::string EntityTable::label(std::string_view name, std::size_t indent) const {
  return std::string(indent, ' ') + style_.in(Ink::strong, name);
}

std::string EntityTable::entity(const Entity& entity, std::size_t indent) const {
  const auto& fields = entity.recordType().fields();
  // The entries of a directory stand in it without the name of an attribute.
  if (&entity.recordType() == &Vesk::Dir::veskType() && fields.front()->count(entity) != 0)
    return entries(entity, *fields.front(), indent);
  std::string out;
  std::size_t width = 0;
  for (const FieldInfo* attribute : fields)
    if (attribute->kind == FieldKind::value) width = std::max(width, attribute->name.size());
  for (const FieldInfo* attribute : fields) {
    if (attribute->isKey || isEmpty(entity, *attribute)) continue;
    if (attribute->kind == FieldKind::value) {
      const std::string padding(width - attribute->name.size(), ' ');
      out += fmt::format("{}{}  {}\n", label(attribute->name, indent), padding,
                         attribute->valueType->text(attribute->get(entity)));
    } else {
      out += field(entity, *attribute, indent);
    }
  }
  return out.empty() ? std::string(indent, ' ') + style_.in(Ink::faint, "(empty)") + "\n" : out;
}

std::string EntityTable::field(const Entity& holder, const FieldInfo& attribute,
                               std::size_t indent) const {
  const std::string name = label(attribute.name, indent);
  switch (attribute.kind) {
    case FieldKind::value:
      return fmt::format("{}  {}\n", name, attribute.valueType->text(attribute.get(holder)));
    case FieldKind::reference:
      return fmt::format("{} -> {}\n", name, referenceText(attribute.child(holder).get()));
    case FieldKind::instance: {
      const auto child = attribute.child(holder);
      return child ? fmt::format("{}\n{}", name, entity(*child, indent + 2))
                   : fmt::format("{}  null\n", name);
    }
    default:
      break;
  }
  if (attribute.count(holder) == 0)
    return fmt::format("{}  {}\n", name, style_.in(Ink::faint, "(empty)"));
  switch (attribute.kind) {
    case FieldKind::valueMap:
      return fmt::format("{}\n{}", name, map(holder, attribute, indent + 2));
    case FieldKind::valueSet:
      return name + set(holder, attribute, indent);
    default:
      return fmt::format("{}\n{}", name, entries(holder, attribute, indent + 2));
  }
}

std::string EntityTable::map(const Entity& holder, const FieldInfo& attribute,
                             std::size_t indent) const {
  Columns table;
  auto& headings = table.rows.emplace_back();
  addHeadings(*attribute.keyType, "key", true, headings);
  addHeadings(*attribute.valueType, "value", false, headings);
  for (const std::string& key : attribute.keys(holder)) {
    auto& row = table.rows.emplace_back();
    addCells(*attribute.keyType, key, true, row);
    if (attribute.corrupt(holder, key)) {
      row.emplace_back("(corrupt)");
    } else {
      addCells(*attribute.valueType, attribute.get(holder, key), false, row);
    }
  }
  return table.lines(indent, style_);
}

std::string EntityTable::set(const Entity& holder, const FieldInfo& attribute,
                             std::size_t indent) const {
  std::string line;
  Columns table;
  addHeadings(*attribute.keyType, "member", true, table.rows.emplace_back());
  for (const std::string& key : attribute.keys(holder)) {
    line += "  " + attribute.keyType->text(key);
    addCells(*attribute.keyType, key, true, table.rows.emplace_back());
  }
  if (indent + attribute.name.size() + line.size() <= lineLength) return line + "\n";
  return "\n" + table.lines(indent + 2, style_);
}

/// Entities of plain values are rows of a table.
std::string EntityTable::flatEntries(const Entity& holder, const FieldInfo& attribute,
                                     std::size_t indent) const {
  Columns table;
  auto& headings = table.rows.emplace_back();
  addHeadings(*attribute.keyType, "key", true, headings);
  const auto& fields = attribute.targetType().fields();
  for (const FieldInfo* f : fields)
    if (!f->isKey) headings.emplace_back(f->name);
  for (const std::string& key : attribute.keys(holder)) {
    auto& row = table.rows.emplace_back();
    addCells(*attribute.keyType, key, true, row);
    const auto child = attribute.child(holder, key);
    for (const FieldInfo* f : fields)
      if (child && !f->isKey) row.push_back(f->valueType->text(f->get(*child)));
  }
  return table.lines(indent, style_);
}

std::string EntityTable::entries(const Entity& holder, const FieldInfo& attribute,
                                 std::size_t indent) const {
  const auto& fields = attribute.targetType().fields();
  const bool isFlat = std::all_of(fields.begin(), fields.end(),
                                  [](const FieldInfo* f) { return f->kind == FieldKind::value; });
  if (isFlat && !attribute.isConst && !isDirectory(attribute))
    return flatEntries(holder, attribute, indent);
  std::string out;
  for (const std::string& key : attribute.keys(holder)) {
    const auto child = attribute.child(holder, key);
    if (!child) continue;
    // Entries that others own are references.
    if (attribute.isConst) {
      out +=
          label(attribute.keyType->text(key), indent) + " -> " + referenceText(child.get()) + "\n";
      continue;
    }
    out += label(attribute.keyType->text(key), indent) + "\n";
    out += entity(*child, indent + 2);
  }
  return out;
}

}  // namespace Host
