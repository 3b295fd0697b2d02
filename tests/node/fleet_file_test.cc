#include "node/fleet_file.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::Fleet;
using node::FleetFile;

std::string IdOf(const Fleet& fleet, std::uint32_t index) {
  const node::DeviceIdText& id = fleet.IdOf(index);
  return {id.begin(), id.end()};
}

std::string NameOf(const Fleet& fleet, std::uint32_t index) {
  std::string name;
  fleet.WriteNameOf(index, name);
  return name;
}

node::Power PowerAt(const Fleet& fleet, std::uint32_t index, std::int64_t seconds) {
  return node::FactorsAt(fleet, At(seconds)).PowerOf(index);
}

std::string Group(const std::string& more) {
  return NodeTable() + "[[group]]\ncount = 3\nname = \"lamp-{n}\"\nrole = \"lamp\"\n" + more + "\n";
}

TEST(FleetFile, AGroupIsAsManyDevicesAsItSays) {
  const Fleet fleet = Load(Group("watts = [0, 100]\nkeywords = [\"a\", \"b\"]\nimportance = 7\n"
                                 "level = 4\ncategory = \"meter\"\ncaliber = \"trusted\"\n"
                                 "entity_type = \"non-poe\"\naddress = \"192.0.2.1:7440\""))
                          .fleet;
  ASSERT_EQ(fleet.device_count(), 3u);
  ASSERT_EQ(fleet.entity_count(), 3u);
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(NameOf(fleet, i), "lamp-" + std::to_string(i + 1));
    EXPECT_EQ(fleet.RoleOf(i), "lamp");
    EXPECT_EQ(fleet.KeywordsOf(i), "a,b");
    EXPECT_EQ(fleet.EntityAt(i).importance, 7);
    EXPECT_EQ(fleet.EntityAt(i).level, 4);
    EXPECT_EQ(fleet.EntityAt(i).number, 1u);
    const node::Model& model = fleet.ModelOf(i);
    EXPECT_EQ(model.category, CV_CORVANE_USAGE_METER);
    EXPECT_EQ(model.caliber, CV_CORVANE_USAGE_CALIBER_TRUSTED);
    EXPECT_EQ(model.entity_type, CV_ENTITY_TYPE_NON_POE);
    EXPECT_EQ(model.domain, "test");
    EXPECT_EQ(ntohs(fleet.AddressOf(i).sin_port), 7440);
  }
  EXPECT_EQ(fleet.models().size(), 1u) << "what they have in common is kept once";
}

TEST(FleetFile, EntitiesOfADeviceShareItsIdentityAndHaveTheirNumbers) {
  const Fleet fleet = Load(NodeTable() +
                           "[[group]]\ncount = 2\nfirst = 8\nentities = 3\n"
                           "name = \"rack-{n:03}/{e}\"\nrole = \"r\"\nwatts = [0, 1]\n")
                          .fleet;
  ASSERT_EQ(fleet.device_count(), 2u);
  ASSERT_EQ(fleet.entity_count(), 6u);
  for (std::uint32_t i = 0; i < 6; ++i) {
    EXPECT_EQ(fleet.EntityAt(i).number, i % 3 + 1);
    EXPECT_EQ(IdOf(fleet, i), IdOf(fleet, i / 3 * 3));
    EXPECT_EQ(NameOf(fleet, i),
              "rack-00" + std::to_string(8 + i / 3) + "/" + std::to_string(i % 3 + 1));
  }
}

TEST(FleetFile, IdentitiesFollowAPatternThatIsFilledTo32Characters) {
  const Fleet fleet = Load(Group("watts = [0, 1]\nid = \"0f1c{n}\"\nfirst = 9")).fleet;
  EXPECT_EQ(IdOf(fleet, 0), "0f1c" + std::string(27, '0') + "9");
  EXPECT_EQ(IdOf(fleet, 1), "0f1c" + std::string(26, '0') + "10");
}

TEST(FleetFile, IdentitiesWithoutAPatternAreUniqueAndStayWhatTheyAre) {
  const Fleet alone = Load(Group("watts = [0, 1]")).fleet;
  std::set<std::string> ids;
  for (std::uint32_t i = 0; i < 3; ++i) {
    const std::string id = IdOf(alone, i);
    EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos) << id;
    ids.insert(id);
  }
  EXPECT_EQ(ids.size(), 3u);
  // HMAC-SHA1 of the name pattern, a zero byte and the number, under the identity of the node.
  const Bytes digest = HmacSha1(Text(DeviceId(0)), Text("lamp-{n}") + Hex("00") + Text("2"));
  std::string expected;
  for (std::size_t i = 0; i < 16; ++i) {
    expected += "0123456789abcdef"[digest[i] >> 4];
    expected += "0123456789abcdef"[digest[i] & 15];
  }
  EXPECT_EQ(IdOf(alone, 1), expected);

  const Fleet among = Load(NodeTable() + DeviceToml{}.Text() +
                           "[[group]]\ncount = 5\nname = \"other-{n}\"\nrole = \"o\"\n"
                           "watts = [0, 1]\n[[group]]\ncount = 9\nname = \"lamp-{n}\"\n"
                           "role = \"changed\"\nwatts = [0, 50]\n")
                          .fleet;
  EXPECT_EQ(NameOf(among, 7), "lamp-2");
  EXPECT_EQ(IdOf(among, 7), expected) << "whatever else the file holds";
}

TEST(FleetFile, WattsAreElevenOrTheTwoEnds) {
  const Fleet pair = Load(Group("watts = [1.5, 31.5]")).fleet;
  const node::Power power = PowerAt(pair, 0, 0);
  EXPECT_EQ(pair.ModelOf(0).units, -3);
  for (std::size_t i = 0; i < 11; ++i) EXPECT_EQ(power.usage_vector[i], 1500 + 3000 * i);
  EXPECT_EQ(power.usage, 31500);

  const Fleet list = Load(Group("watts = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 2000]\nlevel = 9")).fleet;
  EXPECT_EQ(list.ModelOf(0).units, -1) << "2000 W are too many milliwatts and hundredths";
  EXPECT_EQ(PowerAt(list, 0, 0).usage, 90);
  EXPECT_EQ(PowerAt(list, 0, 0).delta_vector[10], 20000 - 90);
  EXPECT_EQ(PowerAt(list, 0, 0).delta_vector[0], -90);
}

TEST(FleetFile, UnitsLeaveRoomForTheProfileAndTheNoiseAtTheirGreatest) {
  // 65.5 W are 65500 mW; ten per cent more are not that anymore.
  EXPECT_EQ(Load(Group("watts = [0, 65.5]")).fleet.ModelOf(0).units, -3);
  EXPECT_EQ(Load(Group("watts = [0, 65.5]\nnoise = 0.1")).fleet.ModelOf(0).units, -2);
  EXPECT_EQ(Load(Group("watts = [0, 65.5]\nprofile = { kind = \"sine\", high = 11 }"))
                .fleet.ModelOf(0)
                .units,
            -1);
  const Fleet fleet = Load(Group("watts = [65535, 65535]\nnoise = 1\nseed = 3")).fleet;
  for (int i = 0; i < 200; ++i) {
    const node::Power power = PowerAt(fleet, 0, 60 * i);
    EXPECT_EQ(power.usage, power.usage_vector[10]);
    EXPECT_LE(power.usage, 13107) << "in tens of watts";
  }
}

TEST(FleetFile, ProfilesChangeUsageAndBothVectors) {
  const TempFolder folder;
  folder.Write("load.csv", "time,factor\n0,0\n01:00,1\n");
  const std::string path = folder.Write(
      "fleet.toml",
      Group("watts = [0, 60]\nlevel = 5\nprofile = { kind = \"csv\", file = \"load.csv\", "
            "period = 7200 }"));
  const Fleet fleet = node::LoadFleet(path).fleet;
  const struct {
    std::int64_t time;
    std::uint16_t usage;
    std::uint16_t full;
  } cases[] = {{0, 0, 0}, {1800, 15000, 30000}, {3600, 30000, 60000}, {5400, 15000, 30000}};
  for (const auto& c : cases) {
    const node::Power power = PowerAt(fleet, 0, c.time);
    EXPECT_EQ(power.usage, c.usage) << c.time;
    EXPECT_EQ(power.usage_vector[10], c.full);
    EXPECT_EQ(power.delta_vector[10], c.full - c.usage);
    EXPECT_EQ(power.delta_vector[0], -c.usage);
  }
}

TEST(FleetFile, ProfilesInTheirForms) {
  constexpr std::int64_t monday = 4 * 86400;
  const struct {
    std::string profile;
    std::int64_t time;
    std::uint16_t usage;  // of 10 W, in milliwatts
  } cases[] = {
      {"\"constant\"", 12345, 10000},
      {"{ kind = \"constant\" }", 12345, 10000},
      {"\"office-day\"", monday, 1500},
      {"\"office-day\"", monday + 10 * 3600, 10000},
      {"{ kind = \"office-day\", low = 0.5, high = 2, utc_offset = 60 }", monday + 8 * 3600, 20000},
      {"{ kind = \"office-day\", low = 0.5, high = 2, utc_offset = 60 }", monday + 19 * 3600, 5000},
      {"{ kind = \"sine\" }", 0, 0},
      {"{ kind = \"sine\" }", 43200, 10000},
      {"{ kind = \"sine\", period = 100, phase = 10, low = 0.1, high = 0.3 }", 60, 3000},
      {"{ kind = \"sine\", period = 100, phase = 10, low = 0.1, high = 0.3 }", 110, 1000},
  };
  for (const auto& c : cases) {
    const Fleet fleet = Load(Group("watts = [0, 10]\nprofile = " + c.profile)).fleet;
    EXPECT_EQ(PowerAt(fleet, 0, c.time).usage * (fleet.ModelOf(0).units == -3 ? 1 : 10), c.usage)
        << c.profile << " at " << c.time;
  }
}

TEST(FleetFile, NoiseIsThatOfItsSeedForEachDevice) {
  const std::string config = Group("watts = [0, 50]\nnoise = 0.2\nseed = 5\nnoise_interval = 10");
  const Fleet fleet = Load(config).fleet;
  const Fleet again = Load(config).fleet;
  std::set<std::uint16_t> usages;
  for (std::uint32_t i = 0; i < 3; ++i) {
    for (int time = 0; time < 100; time += 10) {
      const std::uint16_t usage = PowerAt(fleet, i, time).usage;
      EXPECT_EQ(PowerAt(again, i, time + 9).usage, usage);
      EXPECT_GE(usage, 40000);
      EXPECT_LE(usage, 60000);
      usages.insert(usage);
    }
  }
  EXPECT_GT(usages.size(), 25u);
}

TEST(FleetFile, DomainsHaveTheirOwnEntities) {
  const Fleet fleet = Load(Group("watts = [0, 1]") +
                           "[[group]]\ncount = 2\nname = \"far-{n}\"\nrole = \"f\"\n"
                           "watts = [0, 1]\ndomain = \"elsewhere\"\n"
                           "[[group]]\ncount = 4\nname = \"near-{n}\"\nrole = \"n\"\n"
                           "watts = [0, 1]\n")
                          .fleet;
  const auto names = [&fleet](const std::string& domain) {
    std::vector<std::string> found;
    for (const Fleet::Range& range : fleet.InDomain(domain)) {
      for (std::uint32_t i = range.first; i < range.end; ++i) found.push_back(NameOf(fleet, i));
    }
    return found;
  };
  EXPECT_EQ(names("test"), (std::vector<std::string>{"lamp-1", "lamp-2", "lamp-3", "near-1",
                                                     "near-2", "near-3", "near-4"}));
  EXPECT_EQ(names("elsewhere"), (std::vector<std::string>{"far-1", "far-2"}));
  EXPECT_TRUE(names("nowhere").empty());
}

TEST(FleetFile, EntitiesOfOneDeviceStandTogetherWhereverTheFileHasThem) {
  const Fleet fleet = Load(NodeToml({{.number = 1, .entity = 2, .name = "one/2"},
                                     {.number = 2, .name = "two"},
                                     {.number = 1, .entity = 1, .name = "one/1"}}))
                          .fleet;
  ASSERT_EQ(fleet.device_count(), 2u);
  EXPECT_EQ(NameOf(fleet, 0), "one/2");
  EXPECT_EQ(NameOf(fleet, 1), "one/1");
  EXPECT_EQ(NameOf(fleet, 2), "two");
}

TEST(FleetFile, EntitiesAreFoundByTheirIdentityAndNumber) {
  const Fleet fleet = Load(Group("watts = [0, 1]\nentities = 2")).fleet;
  for (std::uint32_t i = 0; i < fleet.entity_count(); ++i) {
    EXPECT_EQ(fleet.Find(fleet.IdOf(i), fleet.EntityAt(i).number), i);
  }
  EXPECT_FALSE(fleet.Find(fleet.IdOf(0), 3));
  EXPECT_FALSE(fleet.Find(node::DeviceIdText{}, 1));
}

TEST(FleetFile, TheStateFileStandsBesideTheConfiguration) {
  const TempFolder folder;
  const std::string config = NodeTable("state = \"kept.state\"") + DeviceToml{}.Text();
  const FleetFile file = node::LoadFleet(folder.Write("fleet.toml", config));
  EXPECT_EQ(file.state, folder.path("kept.state"));
  EXPECT_FALSE(Load(NodeToml({DeviceToml{}})).state);
}

// --- mistakes ---

struct Mistake {
  std::string config;
  std::uint32_t line;
  std::uint32_t column;
  std::string reason;
};

void ExpectMistakes(const std::vector<Mistake>& mistakes) {
  const TempFolder folder;
  for (const Mistake& mistake : mistakes) {
    const std::string path = folder.Write("fleet.toml", mistake.config);
    try {
      (void)node::LoadFleet(path);
      ADD_FAILURE() << "accepted: " << mistake.config;
    } catch (const node::FleetError& error) {
      const std::string text = error.what();
      EXPECT_EQ(error.line(), mistake.line) << text << "\n" << mistake.config;
      EXPECT_EQ(error.column(), mistake.column) << text << "\n" << mistake.config;
      EXPECT_NE(text.find(mistake.reason), std::string::npos) << text;
      EXPECT_TRUE(text.starts_with(path + ":" + std::to_string(mistake.line) + ":" +
                                   std::to_string(mistake.column) + ": "))
          << text;
    }
  }
}

TEST(FleetFile, MistakesInTheFileAsAWholeAreToldWithTheirPlace) {
  const std::string device = DeviceToml{}.Text();
  ExpectMistakes({
      {"", 1, 1, "[node] is missing"},
      {"a = ", 1, 5, ""},
      {"[node]\nid = \"x\" y\n", 2, 10, ""},
      {"[node]\nid = \"x\"\n", 2, 6, "must have 32 characters, and has 1"},
      {"[node]\nname = \"x\"\n", 1, 1, "'id' is missing"},
      {"node = 3\n", 1, 8, "'node' must be a table"},
      {NodeTable(), 1, 1, "one table [[device]], [[group]] or [host]"},
      {NodeTable() + "device = []\n", 7, 1, "there is no setting 'device' here"},
      {"device = []\n" + NodeTable(), 1, 10, "one table [[device]], [[group]] or [host]"},
      {"device = [1]\n" + NodeTable(), 1, 11, "'device' must be a list of tables"},
      {"group = { count = 1 }\n" + NodeTable() + device, 1, 9, "'group' must be a list of tables"},
      {NodeTable("state = \"\"") + device, 6, 9, "'state' must be a text that is not empty"},
      {NodeTable("states = \"x\"") + device, 6, 1, "there is no setting 'states' here"},
      {NodeTable() + device + "[extra]\n", 18, 2, "there is no setting 'extra' here"},
      {NodeTable() + device + device, 19, 6, "the id and the entity of an earlier one"},
  });
}

TEST(FleetFile, MistakesInAGroupAreToldWithTheirPlace) {
  // Line 7 is [[group]], 8 count, 9 name, 10 role, 11 what is added.
  const auto group = [](const std::string& more) { return Group(more); };
  const auto bare = [](const std::string& text) { return NodeTable() + "[[group]]\n" + text; };
  ExpectMistakes({
      {bare("count = 0\n"), 8, 9, "'count' must be a whole number from 1 to 1000000"},
      {bare("count = 1000001\n"), 8, 9, "'count' must be a whole number"},
      {bare("count = 1.0\n"), 8, 9, "'count' must be a whole number"},
      {bare("name = \"x\"\n"), 7, 1, "'count' is missing"},
      {bare("count = 2\nname = \"x\"\nrole = \"r\"\nwatts = [0, 1]\n"), 9, 8, "must have a {n}"},
      {bare("count = 2\nname = \"x{m}\"\nrole = \"r\"\nwatts = [0, 1]\n"), 9, 8, "{n} and {e}"},
      {bare("count = 2\nname = \"" + std::string(251, 'x') +
            "{n:06}\"\nrole = \"r\"\nwatts = [0, 1]\n"),
       9, 8, "longer than 255"},
      {bare("count = 2\nname = \"{n}\"\nwatts = [0, 1]\n"), 7, 1, "'role' is missing"},
      {group("watts = [0, 1]\ncolour = 3"), 12, 1, "there is no setting 'colour' here"},
      {group("watts = [0, 1]\nentities = 0"), 12, 12, "'entities' must be a whole number from 1"},
      {bare("count = 2000\nentities = 1000\nname = \"{n}\"\nrole = \"r\"\nwatts = [0, 1]\n"), 8, 9,
       "more than 1000000 entities"},
      {group("watts = [0, 1]\nfirst = -1"), 12, 9, "'first' must be a whole number from 0"},
      {group("watts = [0, 1]\nid = \"abc\""), 12, 6, "'id' must have a {n}"},
      {group("watts = [0, 1]\nid = \"" + std::string(32, 'x') + "{n}\""), 12, 6,
       "no more than 32 characters"},
      {group("watts = [0, 1]\nid = \"{n}{e}\""), 12, 6, "entities share the identity"},
      {group("watts = [0, 1]") + "[[group]]\ncount = 3\nname = \"lamp-{n}\"\nrole = \"lamp\"\n"
                                 "watts = [0, 1]\n",
       12, 1, "a device of this group has the id and the entity of an earlier one"},
      {group("watts = [0, 1, 2]"), 11, 9, "a list of 11 numbers"},
      {group("watts = 5"), 11, 9, "'watts' must be a list of numbers"},
      {group("watts = [0, -1]"), 11, 13, "a number in 'watts' must be a number from 0"},
      {group("watts = [0, \"1\"]"), 11, 13, "a number in 'watts' must be a number"},
      {group("watts = [0, nan]"), 11, 13, "a number in 'watts' must be a number"},
      {group("watts = [0, 1]\nunits = 0"), 12, 9, "which need no 'units'"},
      {group("watts = [0, 60000000000]\nnoise = 0.5"), 11, 9, "is more than 65535 MW"},
      {group("units = 0\nusage_vector = [0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 65535]\nnoise = 0.01"), 12,
       16, "choose larger units"},
      {group("units = 0\nusage_vector = [0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1]\nusage = 1\n"
             "noise = 0.01"),
       13, 9, "does not go with a 'noise'"},
      {group(""), 7, 1, "'usage_vector' is missing"},
      {group("watts = [0, 1]\nlevel = 11"), 12, 9, "'level' must be a whole number from 0 to 10"},
      {group("watts = [0, 1]\nimportance = 256"), 12, 14, "'importance' must be a whole number"},
      {group("watts = [0, 1]\ncategory = \"eater\""), 12, 12,
       "'category' must be one of consumer, producer, meter"},
      {group("watts = [0, 1]\ncaliber = \"good\""), 12, 11, "'caliber' must be one of max"},
      {group("watts = [0, 1]\nentity_type = \"x\""), 12, 15, "'entity_type' must be one of none"},
      {group("watts = [0, 1]\nkeywords = [\"a\", \"b,c\"]"), 12, 18, "a text without a comma"},
      {group("watts = [0, 1]\nkeywords = \"a\""), 12, 12, "'keywords' must be a list of texts"},
      {group("watts = [0, 1]\naddress = \"x\""), 12, 11, "'address' must be HOST:PORT"},
      {group("watts = [0, 1]\nnoise = 1.5"), 12, 9, "'noise' must be a number from 0 to 1"},
      {group("watts = [0, 1]\nseed = -1"), 12, 8, "'seed' must be a whole number from 0"},
      {group("watts = [0, 1]\nnoise_interval = 0"), 12, 18, "'noise_interval' must be"},
      {group("watts = [0, 1]\nnanny_vector = 4294967296"), 12, 16, "'nanny_vector' must be"},
      {group("watts = [0, 1]\nerror = \"a\\tb\""), 12, 9, "letters, digits"},
      {group("watts = [0, 1]\nneighbors = [{ id = \"x\" }]"), 12, 21, "must have 32 characters"},
      {group("watts = [0, 1]\nneighbors = [{ name = \"x\" }]"), 12, 16,
       "there is no setting 'name'"},
      {group("watts = [0, 1]\nrecurrence = { text = 3 }"), 12, 23, "'text' must be a text"},
      {group("watts = [0, 1]\nrecurrence = { text = \"x\", flag = 1 }"), 12, 35,
       "'flag' must be true or false"},
      {group("watts = [0, 1]\nrecurrence = { text = \"" + std::string(256, 'x') + "\" }"), 12, 23,
       "'text' must have at most 255 characters"},
      {group("watts = [0, 1]\nrecurrence = { text = \"a\\tb\" }"), 12, 23,
       "'text' must have at most 255 characters and no control characters"},
  });
}

TEST(FleetFile, MistakesInAProfileAreToldWithTheirPlace) {
  const auto with = [](const std::string& profile) {
    return Group("watts = [0, 1]\nprofile = " + profile);
  };
  ExpectMistakes({
      {with("3"), 12, 11, "'profile' must be a table"},
      {with("\"sine\""), 12, 11, "'profile' must be one of constant, office-day"},
      {with("{ low = 1 }"), 12, 11, "'kind' is missing"},
      {with("{ kind = \"square\" }"), 12, 20,
       "'kind' must be one of constant, sine, office-day, csv"},
      {with("{ kind = \"constant\", low = 1 }"), 12, 32, "there is no setting 'low' here"},
      {with("{ kind = \"sine\", period = 0 }"), 12, 37, "'period' must be"},
      {with("{ kind = \"sine\", low = 2 }"), 12, 34, "'low' must not be more than 'high'"},
      {with("{ kind = \"sine\", high = 101 }"), 12, 35, "'high' must be a number from 0 to 100"},
      {with("{ kind = \"office-day\", utc_offset = 900 }"), 12, 47, "'utc_offset' must be"},
      {with("{ kind = \"csv\" }"), 12, 11, "'file' is missing"},
      {with("{ kind = \"csv\", file = \"missing.csv\" }"), 12, 34, "cannot read "},
  });
}

TEST(FleetFile, MistakesInAProfilesFileAreToldWithItsName) {
  const TempFolder folder;
  const std::string csv = folder.Write("load.csv", "0,1\n7,1\n5,1\n");
  const std::string path = folder.Write(
      "fleet.toml", Group("watts = [0, 1]\nprofile = { kind = \"csv\", file = \"load.csv\" }"));
  try {
    (void)node::LoadFleet(path);
    ADD_FAILURE() << "accepted";
  } catch (const node::FleetError& error) {
    EXPECT_EQ(std::string(error.what()), csv + ":3:1: times must ascend");
  }
}

TEST(FleetFile, AFileThatIsNotThereHasNoPlace) {
  try {
    (void)node::LoadFleet("/nonexistent.toml");
    ADD_FAILURE() << "loaded";
  } catch (const node::FleetError& error) {
    EXPECT_EQ(error.line(), 0u);
    EXPECT_TRUE(std::string(error.what()).starts_with("/nonexistent.toml: ")) << error.what();
  }
}

// --- examples ---

TEST(FleetFile, TheExamplesLoad) {
  const std::string examples = std::string(VT_TEST_DIR) + "/../examples/";
  EXPECT_EQ(node::LoadFleet(examples + "office.toml").fleet.entity_count(), 13u);
  const Fleet centre = node::LoadFleet(examples + "data-centre.toml").fleet;
  EXPECT_EQ(centre.device_count(), 240u + 60 + 12 + 10 + 4 + 1);
  EXPECT_EQ(centre.entity_count(), 240u + 60 + 12 * 8 + 10 + 4 + 1);
  const Fleet campus = node::LoadFleet(examples + "campus.toml").fleet;
  EXPECT_EQ(campus.device_count(), 10'000u);
}

}  // namespace
}  // namespace vt::testing
