// Inputs of the agent as other agents would write them, typed, for random histories.
#pragma once

#include <string>

#include "records/TunnelGroupConfig.h"
#include "runtime/SharedMem.h"
#include "runtime/StateDatabase.h"

namespace History {

/// The record at a path of the state database, made if it is not there.
template <class T>
Ombra::Ptr<T> inputAt(const std::string& path) {
  return boost::dynamic_pointer_cast<T>(
      Halden::StateDatabase::instance().create(path, T::veskName));
}
template <class T>
Ombra::Ptr<T> input() {
  return inputAt<T>(T::mountPath());
}
template <class T>
Ombra::Ptr<T> input(Pavlin::AddressFamily af) {
  return inputAt<T>(T::mountPath(af));
}
inline Ombra::Ptr<Vesk::Dir> inputDir(const std::string& path) {
  return inputAt<Vesk::Dir>(path);
}

/// The shared table at a path, made if it is not there.
template <class T>
Ombra::Ptr<T> sharedInput(const std::string& path) {
  return boost::dynamic_pointer_cast<T>(
      VeskSharedMem::EntityManager::getEntityManager()->open(path, T::veskName));
}

/// The shared table at a path to look at. No claim to write it: each claimed table costs the
/// opening of its files at every start.
template <class T>
Ombra::Ptr<T const> sharedTable(const std::string& path) {
  return boost::dynamic_pointer_cast<T const>(
      VeskSharedMem::EntityManager::getEntityManager()->peek(path, T::veskName));
}
template <class T>
Ombra::Ptr<T const> sharedTable() {
  return sharedTable<T>(T::mountPath());
}

template <class T>
Ombra::Ptr<T> sharedInput() {
  return sharedInput<T>(T::mountPath());
}

inline Ombra::Ptr<Routing::Multicast::IpTunnelGroupConfig> groupConfig(
    Irb::Multicast::Domain domain) {
  using Config = Routing::Multicast::IpTunnelGroupConfig;
  return inputAt<Config>(domain == Irb::Multicast::Domain::localDomain
                             ? Config::mountPath()
                             : Config::remoteDomainMountPath());
}

}  // namespace History
