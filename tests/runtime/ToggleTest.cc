#include <array>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "runtime/Toggle.h"
#include "tests/ErrorOf.h"
#include "tests/TemporaryDirectory.h"

using namespace Orlane;

namespace {

class ToggleTest : public testing::Test {
 protected:
  ToggleTest() {
    toggleDirIs(dir);
    forgetToggles();
  }
  ~ToggleTest() override { toggleDirIs({}); }
  void put(const std::string& file, const std::string& text) { std::ofstream(dir / file) << text; }

  TemporaryDirectory directory;
  std::filesystem::path dir = directory.path();
};

TEST_F(ToggleTest, valuesAndDefaults) {
  put("T.json", R"({"yes": true, "no": false, "one": 1, "two": 2, "minusOne": -1,
                    "huge": 18446744073709551615})");
  for (bool otherwise : {false, true}) {
    for (const char* name : {"yes", "one", "minusOne", "huge"}) {
      EXPECT_TRUE(getToggleState(name, "T.json", otherwise)) << name;
    }
    for (const char* name : {"no", "two"}) {
      EXPECT_FALSE(getToggleState(name, "T.json", otherwise)) << name;
    }
    EXPECT_EQ(getToggleState("absent", "T.json", otherwise), otherwise);
    EXPECT_EQ(getToggleState("yes", "Absent.json", otherwise), otherwise);
  }
}

TEST_F(ToggleTest, badFilesNameFileKeyAndValue) {
  struct Case {
    std::string text;
    std::vector<std::string> mentions;
  };
  for (const auto& [text, mentions] : std::vector<Case>{
           {R"({"Gateway": "on"})", {"T.json", "Gateway", "\"on\""}},
           {R"({"Gateway": 1.5})", {"T.json", "Gateway", "1.5"}},
           {"{\n\"Gateway\": tru", {"T.json", "line 2"}},
           {"[true]", {"T.json", "not a JSON object"}},
           {"", {"T.json"}},
       }) {
    put("T.json", text);
    auto error =
        errorOf<ConfigError>([] { static_cast<void>(getToggleState("Gateway", "T.json", true)); });
    for (const auto& mention : mentions) {
      EXPECT_NE(error.find(mention), std::string::npos) << error << " lacks " << mention;
    }
  }
  std::filesystem::create_directory(dir / "D.json");
  EXPECT_NE(errorOf<ConfigError>([] { static_cast<void>(getToggleState("x", "D.json", true)); }),
            "");
}

TEST_F(ToggleTest, aToggleKeepsItsFirstAnswer) {
  static constinit Toggle gateway("Gateway", "T.json", true);
  put("T.json", R"({"Gateway": false})");
  EXPECT_FALSE(gateway.enabled());
  put("T.json", R"({"Gateway": true})");
  EXPECT_FALSE(gateway.enabled());
  forgetToggles();
  EXPECT_TRUE(gateway.enabled());
}

TEST_F(ToggleTest, validationLooksAtEveryNameOfTheKnownFiles) {
  static constinit Toggle gateway("Gateway", "T.json", true), stage("Stage", "S.json", true);
  const std::array<const Toggle*, 2> known{&gateway, &stage};
  auto validate = [&] { return errorOf<ConfigError>([&] { validateToggleFiles(dir, known); }); };
  put("T.json", R"({"Gateway": 0})");
  put("Other.json", R"({"Anything": "goes"})");
  EXPECT_EQ(validate(), "");
  put("S.json", R"({"Gateway": true})");
  EXPECT_NE(validate().find("S.json: key Gateway"), std::string::npos) << "known, but elsewhere";
  put("S.json", R"({"Stage": "x"})");
  EXPECT_NE(validate().find("key Stage"), std::string::npos);
}

}  // namespace
