// Rows of PIM's membership tables by count of their holders: one handle per (source, group, vlan
// interface), held by every review that wants the row. The notifiee writes the row for the first
// holder and deletes it after the last.
// Owns: nothing but the table of handles. Writes: Routing::Gmp::Briskel::Status of both families.
// Runs: inside the call that takes or drops a handle. Caveat: a row that an earlier process has
// left is adopted as it stands, without a write.
#pragma once

#include "records/UnderlayGmp.h"
#include "runtime/Dedup.h"
#include "runtime/Record.h"

namespace Routing::Gmp {

using MembershipDeduped = Sylva::DedupHandle<Briskel::RouteIntfKey>;

class MembershipDedupTable final : public Sylva::DedupTable<Briskel::RouteIntfKey> {
  VESK_RECORD(Routing::Gmp::MembershipDedupTable)
  struct Inputs {
    Ombra::Ptr<Sylva::DedupHashTableLifeTimeNotifiee<Briskel::RouteIntfKey>> notifiee;
    bool operator==(const Inputs&) const = default;
  };
  explicit MembershipDedupTable(Inputs inputs)
      : DedupTable(inputs.notifiee), in(std::move(inputs)) {}
  const Inputs in;
};

}  // namespace Routing::Gmp

namespace Irb::Multicast::Egress {

class MembershipDedupedLifetimeNotifiee final
    : public Sylva::DedupHashTableLifeTimeNotifiee<Routing::Gmp::Briskel::RouteIntfKey> {
  VESK_RECORD(Irb::Multicast::Egress::MembershipDedupedLifetimeNotifiee)
  struct Inputs {
    Ombra::Ptr<Routing::Gmp::Briskel::Status> gmpStatus;
    Ombra::Ptr<Routing::Gmp::Briskel::Status> gmpStatus6;
    bool operator==(const Inputs&) const = default;
  };
  explicit MembershipDedupedLifetimeNotifiee(Inputs inputs) : in(std::move(inputs)) {
    gmpStatusIs(in.gmpStatus);
    gmpStatus6Is(in.gmpStatus6);
  }
  const Inputs in;

  void handleInsert(const Routing::Gmp::MembershipDeduped& handle) override;
  void handleRemove(const Routing::Gmp::MembershipDeduped& handle) override;

  VESK_REF(Routing::Gmp::Briskel::Status, gmpStatus)
  VESK_REF(Routing::Gmp::Briskel::Status, gmpStatus6)
  /// Of the last write to either table, in seconds.
  VESK_VALUE(double, gmpStatusUpdateTs)

 private:
  /// The table of the group's family.
  [[nodiscard]] Routing::Gmp::Briskel::Status& statusOf(
      const Routing::Gmp::Briskel::RouteIntfKey& key) const;
};

}  // namespace Irb::Multicast::Egress
