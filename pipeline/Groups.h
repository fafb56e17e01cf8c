// The collections of a groupby stage: an instantiating collection of the pipeline, whose entities
// hold the members of one key each. Owns nothing.
#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "runtime/Record.h"

namespace Lynthe {

/// `GroupsTag` is the pipeline's collection of groups, `MembersTag` the map of members in a group.
template <class GroupsTag, class MembersTag>
class Groups {
 public:
  using Sm = typename GroupsTag::Record;
  using Key = typename GroupsTag::Attr::Key;
  using Member = typename MembersTag::Attr::Key;

  Groups(Sm* sm, GroupsTag, MembersTag) : sm_(sm) {}

  void insert(const Key& key, const Member& member) const {
    auto group = GroupsTag::attr(*sm_).is(*sm_, GroupsTag::id, key, {});
    MembersTag::attr(*group).is(*group, MembersTag::id, member, true);
  }
  /// False if it is not there. A group without members goes.
  bool remove(const Key& key, const Member& member) const {
    const auto group = GroupsTag::attr(*sm_).get(key);
    if (!group || !MembersTag::attr(*group).has(member)) return false;
    MembersTag::attr(*group).del(*group, MembersTag::id, member);
    if (MembersTag::attr(*group).count() == 0) GroupsTag::attr(*sm_).del(*sm_, GroupsTag::id, key);
    return true;
  }
  /// The lowest member.
  [[nodiscard]] std::optional<Member> first(const Key& key) const {
    const auto group = GroupsTag::attr(*sm_).get(key);
    if (!group) return {};
    const std::vector<Member> members = MembersTag::attr(*group).map().keys();
    return *std::min_element(members.begin(), members.end());  // no group is empty
  }

 private:
  Sm* sm_;
};

}  // namespace Lynthe
