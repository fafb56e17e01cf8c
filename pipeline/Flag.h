// One bool attribute of a pipeline's own records: the scan of a stream is done, an output is ready.
// Owns: a reference to its record. Writes: the attribute, nothing else.
#pragma once

#include <string_view>

#include "runtime/Record.h"

namespace Lynthe {

class Flag {
 public:
  template <class Tag>
  Flag(const Ombra::Ptr<typename Tag::Record>& record, Tag)
      : record_(record),
        name_(Tag::name),
        get_([](const Vesk::Entity& entity) {
          return Tag::attr(static_cast<const typename Tag::Record&>(entity)).get();
        }),
        set_([](Vesk::Entity& entity, bool value) {
          Tag::attr(static_cast<typename Tag::Record&>(entity)).is(entity, Tag::id, value);
        }) {}

  [[nodiscard]] std::string_view name() const { return name_; }
  [[nodiscard]] bool get() const { return get_(*record_); }
  void is(bool value) const { set_(*record_, value); }

 private:
  Ombra::Ptr<Vesk::Entity> record_;
  std::string_view name_;
  bool (*get_)(const Vesk::Entity&);
  void (*set_)(Vesk::Entity&, bool);
};

}  // namespace Lynthe
