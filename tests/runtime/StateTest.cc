// The state database: profiles and their errors, and what mounting makes.

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "runtime/StateDatabase.h"
#include "runtime/Toggle.h"
#include "runtime/values/Addresses.h"
#include "tests/ErrorOf.h"
#include "tests/TemporaryDirectory.h"

namespace statetest {

class Status : public Vesk::Entity {
  VESK_LOCAL_RECORD(statetest::Status)
  VESK_VALUE(std::string, name)
  VESK_VALUE(Pavlin::AddressFamily, af)
};
class Plain : public Vesk::Entity {
  VESK_LOCAL_RECORD(statetest::Plain)
  VESK_VALUE(std::uint32_t, value)
};
struct MountCount final : Halden::Mounter {
  void haldenMountsDone(Halden::MountStatus s) override { status = s, ++calls; }
  Halden::MountStatus status{};
  int calls = 0;
};

class StateTest : public testing::Test {
 protected:
  ~StateTest() override {
    Halden::profileDirIs(CORVANE_PROFILE_DIR);
    database.remove("test");
  }
  void profileIs(const std::string& text) {
    std::ofstream(directory / "P.yaml") << text;
    Halden::profileDirIs(directory.path());
  }
  std::string errorOf(const std::string& text) {
    profileIs(text);
    const std::string error =
        ::errorOf<Orlane::ConfigError>([] { (void)Halden::loadProfile("P"); });
    const std::string place = directory / "P.yaml:";
    return error.starts_with(place) ? error.substr(place.size()) : error;
  }
  TemporaryDirectory directory;
  Halden::StateDatabase& database = Halden::StateDatabase::instance();
};

TEST_F(StateTest, aBadProfileIsRefusedWithFileLineKeyAndValue) {
  const std::string head = "profile: P\nmounts:\n";
  const std::string good = "  - {path: test/a, type: \"statetest::Status\"}\n";
  const std::pair<std::string, std::string> cases[] = {
      {head + good, ""},
      {head + good + "  - {path: test/b, type: \"No::Such\"}\n",
       "4: path 'test/b': unknown type 'No::Such'"},
      {head + good + good, "4: path 'test/a' is mounted twice"},
      {head + "  - {path: test/a, type: \"statetest::Plain\", access: maybe}\n",
       "3: path 'test/a': access 'maybe' is neither read nor write"},
      {head + "  - {path: test/a, kind: x}\n", "3: unknown key 'kind' of a mount"},
      {"profile: P\nmounts: all\n", "2: 'mounts' must be a list"},
      {"profile: Q\n", " profile is named 'Q', not 'P'"},
      {"- P\n", " not a mount profile"}};
  for (const auto& [text, error] : cases)
    EXPECT_EQ(errorOf(text), error) << text;
  EXPECT_NE(errorOf("profile: P\n  - : [\n"), "");
  EXPECT_THROW((void)Halden::loadProfile("Absent"), Orlane::ConfigError);
}

TEST_F(StateTest, mountsMakeWhatIsMissingAndShowNothingElse) {
  database.create("test/ipv6/other", "statetest::Plain");
  profileIs(
      "profile: P\nmounts:\n  - {path: test/ipv6/status, type: \"statetest::Status\", access: "
      "write}\n");
  const auto manager = Ombra::make<Halden::EntityManager>();
  MountCount mounter;
  const auto mount = [&] {
    const auto group = manager->getMountGroup(&mounter);
    group->doMountAll("P");
    group->doClose(true, "P", 0);
    return mounter.status;
  };
  EXPECT_EQ(mount(), Halden::mountSuccess());
  EXPECT_EQ(mounter.calls, 1);
  const auto status = boost::dynamic_pointer_cast<Status>(manager->getEntity("test/ipv6/status"));
  ASSERT_TRUE(status);
  EXPECT_EQ(status->name(), "status");
  EXPECT_EQ(status->af(), Pavlin::AddressFamily::ipv6);
  EXPECT_EQ(manager->getEntity("test/ipv6/other"), nullptr) << "there, but not mounted";
  EXPECT_EQ(manager->getEntity("test/ipv6"), nullptr);
  // Something of another type stands at the path already.
  profileIs("profile: P\nmounts:\n  - {path: test/ipv6/other, type: \"statetest::Status\"}\n");
  EXPECT_EQ(mount(), Halden::MountStatus::failed);
  EXPECT_EQ(database.create("test/ipv6/status/below", "statetest::Plain"), nullptr)
      << "not a directory";
  EXPECT_EQ(database.create("test/new/x", "No::Such"), nullptr);
  EXPECT_EQ(database.find("test/new"), nullptr) << "nothing half made";
}

}  // namespace statetest
