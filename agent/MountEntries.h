// The kinds of entry in the list of mounts, and who keeps what is mounted.
// Owns: the entries as they are listed (MountCatalog.cc). Every mounted path names its keeper. If
// that is an attribute of the agent, a family or a domain, the type follows from it, and so does
// the access: what is kept for reading is mounted for reading. Caveat: a keeper runs when its
// holder stands, which the moment of the entry has to see to.
#pragma once

#include "agent/CorvaneAgent.h"
#include "agent/MountCatalog.h"

namespace Corvane {

// --- keepers

template <class Record>
Record& holderOf(Multicast::Vpn::Agent& agent, const MountPath& mount) {
  using namespace Multicast::Vpn;
  if constexpr (std::is_same_v<Record, Agent>) {
    return agent;
  } else if constexpr (std::is_same_v<Record, AfContainer>) {
    return *agent.afContainer(mount.af);
  } else {
    static_assert(std::is_same_v<Record, DomainContainer>);
    return *agent.afContainer(mount.af)->domainContainer(mount.domain);
  }
}

/// Keeps in a reference of the agent, of the family or of the domain.
template <class Tag>
void keepIn(Multicast::Vpn::Agent& agent, const MountPath& mount,
            const Ombra::Ptr<Vesk::Entity>& entity) {
  auto& holder = holderOf<typename Tag::Record>(agent, mount);
  using Target = typename Tag::Attr::Target;
  Tag::attr(holder).is(holder, Tag::id, boost::dynamic_pointer_cast<Target>(entity));
}

template <class Record>
void keepForStages(Multicast::Vpn::Agent& agent, const MountPath&,
                   const Ombra::Ptr<Vesk::Entity>& entity) {
  std::get<Ombra::Ptr<Record>>(agent.stageMounts) = boost::dynamic_pointer_cast<Record>(entity);
}

/// Keeps the groups of a family in the wrapper that does not name it.
template <class Wrapper, class Record>
void keepWrapped(Multicast::Vpn::Agent& agent, const MountPath& mount,
                 const Ombra::Ptr<Vesk::Entity>& entity) {
  agent.afContainer(mount.af)->sbdVlanMcastGroupIs(
      Ombra::make<Wrapper>(boost::dynamic_pointer_cast<Record>(entity)));
}

template <bool isPeer>
void keepJoins(Multicast::Vpn::Agent& agent, const MountPath& mount,
               const Ombra::Ptr<Vesk::Entity>& entity) {
  const auto joins = agent.afContainer(mount.af)->membershipJoinStatusColl();
  const auto status =
      boost::dynamic_pointer_cast<Irb::Multicast::Gmp::MembershipJoinStatus>(entity);
  isPeer ? joins->peerMembershipIs(status) : joins->localMembershipIs(status);
}

/// Each collection sized as its record declares.
template <class Record>
VeskBriskel::MountInfo sized(VeskBriskel::VeskBriskelType type, bool flag = false) {
  VeskBriskel::MountInfo info(type);
  for (const Vesk::FieldInfo* field : Record::veskType().fields())
    if (field->capacity != 0)
      info.collectionInfoIs({{std::string(field->name), field->capacity}, flag});
  return info;
}

template <class Record>
VeskBriskel::MountInfo tableInfo(Access access) {
  return access == Access::write
             ? sized<Record>(VeskBriskel::VeskBriskelType::writer)
             : VeskBriskel::MountInfo(VeskBriskel::VeskBriskelType::readerTracked);
}

// --- kinds of entry

class MountEntries {
 public:
  [[nodiscard]] std::vector<MountPath> take() { return std::move(paths_); }

 protected:
  MountEntries() = default;

  /// Of the state database. Without a path it is the record's own.
  template <class Tag>
  MountPath& profile(Tag tag, std::string path, Condition condition = Condition::always) {
    MountPath& mount = kept(tag, std::move(path), condition);
    mount.mounting = Mounting::profile;
    return mount;
  }
  template <class Tag>
  MountPath& profile(Tag tag, Condition condition = Condition::always) {
    return profile(tag, ownPath<typename Tag::Attr::Target>(), condition);
  }
  /// Of the state database, for the stages of a standby.
  template <class Record>
  void forStages() {
    MountPath& mount = add<Record>(ownPath<Record>(), Condition::standby, &keepForStages<Record>);
    mount.mounting = Mounting::profile;
    mount.kept = Moment::standby;
  }
  /// Of the state database, kept in a wrapper.
  template <class Wrapper, class Record>
  void wrapped() {
    add<Record>(ownPath<Record>(), Condition::always, &keepWrapped<Wrapper, Record>).mounting =
        Mounting::profile;
  }

  /// A table that is there while the logic runs. One that this agent writes is sized by its record,
  /// and leaves no rows behind.
  template <class Tag>
  MountPath& table(Tag tag, std::string path, Condition condition = Condition::always) {
    MountPath& mount = kept(tag, std::move(path), condition);
    mount.mounting = Mounting::startup;
    mount.kept = Moment::startup;
    mount.info = tableInfo<std::remove_const_t<typename Tag::Attr::Target>>(mount.access);
    mount.atShutdown = mount.access == Access::write ? AtShutdown::cleaned : AtShutdown::unmounted;
    return mount;
  }
  template <class Tag>
  MountPath& table(Tag tag, Condition condition = Condition::always) {
    return table(tag, ownPath<typename Tag::Attr::Target>(), condition);
  }

  /// A table of nested entities, there from the beginning.
  template <class Tag>
  MountPath& deferred(Tag tag, std::string path, Condition condition) {
    return deferred(kept(tag, std::move(path), condition));
  }
  void joins(Irb::Multicast::App::Client client) {
    using namespace Irb::Multicast::Gmp;
    deferred(add<MembershipJoinStatus const>(
        MembershipJoinStatus::mountPath(af_, client),
        isGatewayClient(client) ? Condition::gateway : Condition::always,
        client == peerClient ? &keepJoins<true> : &keepJoins<false>));
  }
  /// A flat table, there from the beginning.
  template <class Tag>
  void deferredTable(Tag tag, std::string path, Condition condition = Condition::always) {
    MountPath& mount = deferred(tag, std::move(path), condition);
    mount.info = tableInfo<std::remove_const_t<typename Tag::Attr::Target>>(mount.access);
  }

  /// A table that the root of the tunnel service mounts.
  template <class Record>
  void byRoot(Access access, std::string path) {
    MountPath& mount = add<Record>(std::move(path), Condition::always, nullptr);
    mount.mounting = Mounting::root;
    mount.kept = Moment::startup;
    mount.access = access;
    mount.info = tableInfo<Record>(access);
  }
  template <class Record>
  void byRoot(Access access) {
    byRoot<Record>(access, ownPath<Record>());
  }
  /// Of the state database, and not mounted.
  template <class Record>
  void input() {
    add<Record const>(ownPath<Record>(), Condition::always, nullptr);
  }

  /// Where the record lies if it lies in one place, or in one per family.
  template <class Record>
  [[nodiscard]] std::string ownPath() const {
    if constexpr (requires { Record::mountPath(); }) {
      return Record::mountPath();
    } else {
      return Record::mountPath(af_);
    }
  }

  template <class List>
  void eachFamily(List list) {
    for (const auto af : Pavlin::families) {
      af_ = af;
      list();
    }
    af_ = Pavlin::AddressFamily::none;
  }
  template <class List>
  void eachDomain(List list) {
    for (const auto domain : Multicast::Vpn::domains) {
      domain_ = domain;
      list(Multicast::Vpn::traitsOf(domain));
    }
    domain_ = Irb::Multicast::Domain::localDomain;
  }
  /// The family that is being listed; none: the agent as a whole.
  [[nodiscard]] Pavlin::AddressFamily af() const { return af_; }

 private:
  static MountPath& deferred(MountPath& mount) {
    mount.mounting = Mounting::deferred;
    mount.kept = Moment::startup;
    mount.info = VeskSkarel::MountInfo{false, mount.access == Access::read, true};
    return mount;
  }
  template <class Tag>
  MountPath& kept(Tag, std::string path, Condition condition) {
    return add<typename Tag::Attr::Target>(std::move(path), condition, &keepIn<Tag>);
  }
  template <class Record>
  MountPath& add(std::string path, Condition condition, MountPath::Keep keep) {
    MountPath& mount = paths_.emplace_back();
    mount.path = std::move(path);
    mount.type = Record::veskName;
    mount.access = std::is_const_v<Record> ? Access::read : Access::write;
    mount.condition = condition;
    mount.af = af_;
    mount.domain = domain_;
    mount.keep = keep;
    return mount;
  }
  std::vector<MountPath> paths_;
  Pavlin::AddressFamily af_ = Pavlin::AddressFamily::none;
  Irb::Multicast::Domain domain_ = Irb::Multicast::Domain::localDomain;
};

}  // namespace Corvane
