#include "records/MembershipJoin.h"

VESK_REGISTER(Irb::Multicast::Gmp::SourceMembershipJoin)
VESK_REGISTER(Irb::Multicast::Gmp::GroupMembershipJoin)
VESK_REGISTER(Irb::Multicast::Gmp::VlanMembershipJoin)
VESK_REGISTER(Irb::Multicast::Gmp::MembershipJoinStatus)
