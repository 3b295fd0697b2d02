#include "recording/anonymize.h"

#include <gtest/gtest.h>

#include <string>

#include "recording/recording_text.h"

namespace vt::recording {
namespace {

constexpr AnonymityKey kKey = {1, 2, 3};

// Two devices that know each other, of which one has two entities.
std::string House() {
  return "voltaris recording 1\n"
         "node = \"housenode00000000000000000000001\"\n"
         "domain = \"smith-family\"\n"
         "time = 2026-11-21T15:29:54Z\n"
         "attributes = role, name, keywords, error, usage, level, importance, address, neighbor, "
         "neighbor-count, nanny-vector, caliber, recurrence, text-21, category\n"
         "entity = \"housedevice000000000000000000001\" 1\n"
         "role = \"lamp\"\nname = \"smith-lamp\"\nkeywords = \"smith\", \"\", \"attic\", "
         "\"smith\"\n"
         "error = \"smith is hot\"\nusage = 17 e-1\nlevel = 3\nimportance = 9\n"
         "address = 203.0.113.9:7440\n"
         "neighbor = \"housedevice000000000000000000002\" \"smith-heater\" 203.0.113.10:99 1\n"
         "neighbor = \"housedevice000000000000000000001\" \"\" 0x736d697468 0\n"
         "neighbor-count = 2\nnanny-vector = 7\ncaliber = actual\n"
         "recurrence = \"0 8,20 * */2 1-5\" 1 2 3\ntext-21 = \"of smith\"\ncategory = meter\n"
         "entity = \"housedevice000000000000000000001\" 2\n"
         "role = \"lamp\"\nname = \"smith-lamp\"\naddress = 203.0.113.9:7440\n"
         "recurrence = \"when smith is in\" 0 0 0\n"
         "entity = \"housedevice000000000000000000002\" 1\n"
         "role = \"heater\"\nname = \"smith-heater\"\naddress = 203.0.113.10:99\n"
         "end\n";
}

Recording Anonymous(const AnonymityKey& key) {
  Recording recording = ReadRecording(House());
  Anonymize(recording, key);
  return recording;
}

const Entity& Find(const Recording& recording, std::uint32_t index, const std::string& role) {
  for (const Entity& entity : recording.entities) {
    const bool is_lamp = entity.level || entity.id.index == 2;
    if (entity.id.index == index && is_lamp == (role == "lamp")) return entity;
  }
  throw std::runtime_error("there is no such entity");
}

const Neighbor& NeighborOfFlag(const Entity& entity, std::int32_t flag) {
  for (const Neighbor& neighbor : entity.neighbors) {
    if (neighbor.flag == flag) return neighbor;
  }
  throw std::runtime_error("there is no such neighbor");
}

TEST(Anonymize, NothingOfTheNamesAndIdentitiesIsLeft) {
  const std::string text = WriteRecording(Anonymous(kKey));
  for (const char* trace :
       {"smith", "house", "203.0.113", "attic", "lamp", "heater", "736d697468"}) {
    EXPECT_EQ(text.find(trace), std::string::npos) << trace << " is in\n" << text;
  }
}

TEST(Anonymize, EqualIdentitiesTextsAndAddressesStayEqual) {
  const Recording recording = Anonymous(kKey);
  ASSERT_EQ(recording.entities.size(), 3u);
  const Entity& lamp = Find(recording, 1, "lamp");
  const Entity& second = Find(recording, 2, "lamp");
  const Entity& heater = Find(recording, 1, "heater");
  EXPECT_EQ(lamp.id.device, second.id.device);
  EXPECT_NE(lamp.id.device, heater.id.device);
  EXPECT_EQ(NeighborOfFlag(lamp, 1).device, heater.id.device);
  EXPECT_EQ(NeighborOfFlag(lamp, 0).device, lamp.id.device);
  EXPECT_EQ(lamp.role, second.role);
  EXPECT_NE(lamp.role, heater.role);
  EXPECT_EQ(lamp.name, second.name);
  EXPECT_NE(lamp.name, heater.name);
  EXPECT_EQ((*lamp.keywords)[0], (*lamp.keywords)[3]);
  EXPECT_NE((*lamp.keywords)[0], (*lamp.keywords)[2]);
  EXPECT_EQ((*lamp.keywords)[1], "");
  EXPECT_EQ(lamp.address, second.address);
  EXPECT_NE(lamp.address, heater.address);
  EXPECT_EQ(NeighborOfFlag(lamp, 1).data,
            std::string(heater.address->begin(), heater.address->end()));
}

TEST(Anonymize, NumbersAndCalendarExpressionsStay) {
  const Recording recording = Anonymous(kKey);
  const Entity& lamp = Find(recording, 1, "lamp");
  EXPECT_EQ(recording.domain, "domain-1");
  EXPECT_EQ(lamp.usage, (Usage{17, -1}));
  EXPECT_EQ(lamp.level, 3);
  EXPECT_EQ(lamp.importance, 9);
  EXPECT_EQ(lamp.neighbor_count, 2);
  EXPECT_EQ(lamp.nanny_vector, 7u);
  EXPECT_EQ(lamp.caliber, CV_CORVANE_USAGE_CALIBER_ACTUAL);
  EXPECT_EQ(lamp.category, CV_CORVANE_USAGE_METER);
  EXPECT_EQ(lamp.recurrence, (Recurrence{"0 8,20 * */2 1-5", 1, 2, 3}));
  EXPECT_EQ(NeighborOfFlag(lamp, 0).data, std::string(5, '\0'));
  EXPECT_EQ(Find(recording, 2, "lamp").recurrence->text, "recurrence-1");
  EXPECT_EQ(lamp.error_text, "error-1");
  EXPECT_EQ(lamp.text_21, "text-1");
}

TEST(Anonymize, OnlyFiveFieldsOfACalendarStay) {
  for (const char* text : {"8 8 * *", "8 8 * * * *", "8  8 * *", " 8 8 * * *", "8 8 * * * ",
                           "8 8 * * fri", "0301234567890123456789 8 * * *", ""}) {
    Recording recording = ReadRecording(House());
    recording.entities[0].recurrence->text = text;
    Anonymize(recording, kKey);
    const std::string stand_in = Find(recording, 1, "lamp").recurrence->text;
    EXPECT_NE(stand_in.empty(), stand_in.starts_with("recurrence-")) << text;
    EXPECT_EQ(stand_in.empty(), *text == '\0') << text;
  }
}

TEST(Anonymize, IdentitiesFollowFromTheKeyAndStandInOrder) {
  const Recording once = Anonymous(kKey);
  EXPECT_EQ(WriteRecording(once), WriteRecording(Anonymous(kKey)));
  EXPECT_NE(once.node, Anonymous({4, 5, 6}).node);
  EXPECT_NE(RandomKey(), RandomKey());
  for (std::size_t i = 1; i < once.entities.size(); ++i) {
    EXPECT_LT(once.entities[i - 1].id, once.entities[i].id);
  }
  const std::vector<Neighbor>& neighbors = Find(once, 1, "lamp").neighbors;
  EXPECT_LT(neighbors[0], neighbors[1]);
  EXPECT_EQ(once.node.text().find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST(Anonymize, WhatComesOfItIsARecording) {
  const std::string text = WriteRecording(Anonymous(kKey));
  EXPECT_EQ(WriteRecording(ReadRecording(text)), text);
}

}  // namespace
}  // namespace vt::recording
