// Runs a function on every change of one entity, for tests that count or look at changes.
#pragma once

#include <functional>
#include <utility>

#include "runtime/Entity.h"
#include "runtime/Notify.h"

namespace Vesk {

struct Observer : Listener {
  Observer(const Entity& entity, std::function<void(Ombra::FieldId)> function)
      : Listener([](Listener& self, Ombra::FieldId field, const void*) {
          static_cast<Observer&>(self).run(field);
        }),
        run(std::move(function)) {
    attach(&entity);
  }
  std::function<void(Ombra::FieldId)> run;
};

}  // namespace Vesk
