// Reading mounted entities in their expected types. Used by the agent alone: nobody else mounts.
// A path that holds another type reads as null, which is a fault of the mount profile.
#pragma once

#include <string>

#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace Multicast::Vpn {

/// The entity at a mounted path of the state database.
template <class T>
[[nodiscard]] Ombra::Ptr<T> mounted(const Halden::EntityManager& em, const std::string& path) {
  return boost::dynamic_pointer_cast<T>(em.getEntity(path));
}

/// Stores the entity at a mounted path in a reference of `holder`.
template <class Tag, class Holder>
void mountedTo(Tag, Holder& holder, const Halden::EntityManager& em, const std::string& path) {
  using Target = std::remove_const_t<typename Tag::Attr::Target>;
  Tag::attr(holder).is(holder, Tag::id, mounted<Target>(em, path));
}

/// The shared-memory table mounted at a path.
template <class T>
[[nodiscard]] Ombra::Ptr<T> sharedAt(const std::string& path) {
  return boost::dynamic_pointer_cast<T>(
      VeskSharedMem::EntityManager::getEntityManager()->getEntity(path));
}

template <class Tag, class Holder>
void sharedTo(Tag, Holder& holder, const std::string& path) {
  using Target = std::remove_const_t<typename Tag::Attr::Target>;
  Tag::attr(holder).is(holder, Tag::id, sharedAt<Target>(path));
}

}  // namespace Multicast::Vpn
