// The signature of a table's layout.
#include <gtest/gtest.h>

#include "runtime/Record.h"
#include "runtime/RowFile.h"

namespace rowfiletest {

namespace plain {
struct Pair {
  VESK_STRUCT(Pair)
  VESK_MEMBER(std::uint16_t, a)
  VESK_MEMBER(std::uint16_t, b)
  auto operator<=>(const Pair&) const = default;
};
enum class Kind : std::uint8_t { one = 1, two = 2 };
class Table : public Vesk::Entity {
  VESK_RECORD(rowfiletest::plain::Table)
  VESK_MAP(std::uint16_t, Pair, pair)
  VESK_MAP(std::uint16_t, Kind, kind)
};
}  // namespace plain

namespace changed {
struct Pair {
  VESK_STRUCT(Pair)
  VESK_MEMBER(std::uint16_t, b)
  VESK_MEMBER(std::uint16_t, a)
  auto operator<=>(const Pair&) const = default;
};
enum class Kind : std::uint8_t { two = 1, one = 2 };
class Table : public Vesk::Entity {
  VESK_RECORD(rowfiletest::changed::Table)
  VESK_MAP(std::uint16_t, Pair, pair)
  VESK_MAP(std::uint16_t, Kind, kind)
};
}  // namespace changed

}  // namespace rowfiletest

template <>
struct Vesk::EnumNames<rowfiletest::plain::Kind> {
  static constexpr std::string_view name = "Kind";
  using enum rowfiletest::plain::Kind;
  static constexpr auto values =
      std::to_array<EnumName<rowfiletest::plain::Kind>>({{one, "one"}, {two, "two"}});
};
template <>
struct Vesk::EnumNames<rowfiletest::changed::Kind> {
  static constexpr std::string_view name = "Kind";
  using enum rowfiletest::changed::Kind;
  static constexpr auto values =
      std::to_array<EnumName<rowfiletest::changed::Kind>>({{one, "one"}, {two, "two"}});
};

namespace rowfiletest {

TEST(RowFileTest, membersAndEnumeratorsAreWithinTheSignature) {
  const auto before = VeskSharedMem::rowFilesOf("", "t", plain::Table::veskType());
  const auto after = VeskSharedMem::rowFilesOf("", "t", changed::Table::veskType());
  ASSERT_EQ(before.size(), 2U);
  EXPECT_EQ(before[0].layoutText(), "pair:u16:2;pair=Pair:4{a=u16:2;b=u16:2;};");
  EXPECT_EQ(before[1].layoutText(), "kind:u16:2;kind=Kind:1{one=1;two=2;};");
  for (const std::size_t file : {0U, 1U})
    EXPECT_NE(before[file].shape.signature, after[file].shape.signature);
}

}  // namespace rowfiletest

VESK_REGISTER(rowfiletest::plain::Table)
VESK_REGISTER(rowfiletest::changed::Table)
