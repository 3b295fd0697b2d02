#include "recording/recording_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "recording/attribute_lines.h"
#include "tests/harness/note.h"
#include "tests/harness/sanitizers.h"

namespace vt::recording {
namespace {

constexpr std::string_view kHeader =
    "voltaris recording 1\n"
    "node = \"node0000000000000000000000000001\"\n"
    "domain = \"office\"\n"
    "time = 2026-11-21T15:29:54Z\n";

constexpr std::string_view kAllAttributes =
    "attributes = role, name, keywords, error, units, usage, level, importance, entity-type, "
    "address, neighbor, neighbor-count, nanny-vector, delta-vector, caliber, usage-vector, "
    "recurrence, text-21, category\n";

// Complete has every attribute, an entity without any, and texts that nobody meant well.
std::string Complete() {
  return std::string(kHeader) + std::string(kAllAttributes) +
         "\n"
         "entity = \"device00000000000000000000000001\" 1\n"
         "  role = \"lamp\"\n"
         "  name = \"\\x1b[31mK\xC3\xBC"
         "che \\\"1\\\"\"\n"
         "  keywords = \"light\", \"\", \"floor 1\"\n"
         "  error = \"hot\"\n"
         "  units = -1\n"
         "  usage = 65535 e-1\n"
         "  level = 200\n"
         "  importance = 255\n"
         "  entity-type = admin-off\n"
         "  address = 192.0.2.7:7440\n"
         "  neighbor = \"device00000000000000000000000002\" \"next\" 192.0.2.1:258 1\n"
         "  neighbor = \"device0000000000000000000000000\\x00\" \"\" - -2147483648\n"
         "  neighbor = \"device00000000000000000000000002\" \"\" 0x0001ff 0\n"
         "  neighbor-count = 7\n"
         "  nanny-vector = 4294967295\n"
         "  delta-vector = -2147483648 -2 -1 0 1 2 3 4 5 6 2147483647 e-1\n"
         "  caliber = presumed\n"
         "  usage-vector = 0 1 2 3 4 5 6 7 8 9 65535 e-1\n"
         "  recurrence = \"0 8 * * *\" 1 255 -1\n"
         "  text-21 = \"note\"\n"
         "  category = meter\n"
         "\n"
         "entity = \"device00000000000000000000000001\" 4294967295\n"
         "  keywords =\n"
         "  usage = 3\n"
         "  entity-type = 77\n"
         "  address = 0x02001d10c000020700000000000000ff\n"
         "  caliber = -9\n"
         "  category = 2\n"
         "\n"
         "entity = \"device00000000000000000000000003\" 1\n"
         "\n"
         "end\n";
}

std::string WhyNotRead(std::string_view text) {
  try {
    (void)ReadRecording(text);
    return "it was read";
  } catch (const RecordingError& error) {
    return std::to_string(error.line()) + ":" + std::to_string(error.column()) + ": " +
           error.what();
  }
}

// WithEntity is a recording of one entity with these lines, of which the first is line 7.
std::string WithEntity(const std::string& lines) {
  return std::string(kHeader) + std::string(kAllAttributes) +
         "entity = \"device00000000000000000000000001\" 1\n" + lines + "\nend\n";
}

TEST(RecordingText, EveryAttributeIsReadAsWhatItSays) {
  const Recording recording = ReadRecording(Complete());
  EXPECT_EQ(recording.node.text(), "node0000000000000000000000000001");
  EXPECT_EQ(recording.domain, "office");
  EXPECT_EQ(recording.time.time_since_epoch().count(), 1795274994);
  EXPECT_EQ(recording.attributes.size(), 19u);
  ASSERT_EQ(recording.entities.size(), 3u);

  const Entity& first = recording.entities[0];
  EXPECT_EQ(first.id.device.text(), "device00000000000000000000000001");
  EXPECT_EQ(first.id.index, 1u);
  EXPECT_EQ(first.line, 7u);
  EXPECT_EQ(first.role, "lamp");
  EXPECT_EQ(first.name,
            "\x1b[31mK\xC3\xBC"
            "che \"1\"");
  EXPECT_EQ(first.keywords, (std::vector<std::string>{"light", "", "floor 1"}));
  EXPECT_EQ(first.error_text, "hot");
  EXPECT_EQ(first.units, -1);
  EXPECT_EQ(first.usage, (Usage{65535, -1}));
  EXPECT_EQ(first.level, 200);
  EXPECT_EQ(first.importance, 255);
  EXPECT_EQ(first.entity_type, CV_ENTITY_TYPE_ADMIN_OFF);
  constexpr AddressBytes address = {2, 0, 0x1d, 0x10, '\xC0', 0, 2, 7};
  EXPECT_EQ(first.address, address);
  ASSERT_EQ(first.neighbors.size(), 3u);
  EXPECT_EQ(first.neighbors[0].label, "next");
  EXPECT_EQ(first.neighbors[0].data,
            std::string("\x02\0\x01\x02\xC0\0\x02\x01\0\0\0\0\0\0\0\0", 16));
  EXPECT_EQ(first.neighbors[0].flag, 1);
  EXPECT_EQ(first.neighbors[1].device.bytes.back(), 0);
  EXPECT_EQ(first.neighbors[1].data, "");
  EXPECT_EQ(first.neighbors[1].flag, -2147483647 - 1);
  EXPECT_EQ(first.neighbors[2].data, std::string("\0\x01\xFF", 3));
  EXPECT_EQ(first.neighbor_count, 7);
  EXPECT_EQ(first.nanny_vector, 4294967295u);
  EXPECT_EQ(first.delta_vector,
            (DeltaVector{{-2147483647 - 1, -2, -1, 0, 1, 2, 3, 4, 5, 6, 2147483647}, -1}));
  EXPECT_EQ(first.caliber, CV_CORVANE_USAGE_CALIBER_PRESUMED);
  EXPECT_EQ(first.usage_vector, (UsageVector{{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 65535}, -1}));
  EXPECT_EQ(first.recurrence, (Recurrence{"0 8 * * *", 1, 255, -1}));
  EXPECT_EQ(first.text_21, "note");
  EXPECT_EQ(first.category, CV_CORVANE_USAGE_METER);

  const Entity& second = recording.entities[1];
  EXPECT_EQ(second.id.index, 4294967295u);
  EXPECT_EQ(second.role, std::nullopt);
  EXPECT_EQ(second.keywords, std::vector<std::string>());
  EXPECT_EQ(second.usage, (Usage{3, std::nullopt}));
  EXPECT_EQ(second.entity_type, 77);
  EXPECT_EQ(second.caliber, -9);
  EXPECT_EQ(second.category, 2);
}

TEST(RecordingText, WhatWasReadIsWrittenAsItStood) {
  EXPECT_EQ(WriteRecording(ReadRecording(Complete())), Complete());
}

TEST(RecordingText, PeopleMayIndentCommentAndOrderAsTheyLike) {
  const Recording recording = ReadRecording(
      "voltaris recording 1\n"
      "# of the second floor\n"
      "attributes=name,level\n"
      "\ttime =2026-11-21T15:29:54Z  \n"
      "\n"
      "domain= \"office\"\n"
      "node = \"node0000000000000000000000000001\"\n"
      "entity=\"device00000000000000000000000001\"\t2\n"
      "level = 3\n"
      "   # it had no name before\n"
      "name = \"lamp\"\n"
      "end\n");
  ASSERT_EQ(recording.entities.size(), 1u);
  EXPECT_EQ(recording.entities[0].id.index, 2u);
  EXPECT_EQ(recording.entities[0].name, "lamp");
  EXPECT_EQ(recording.entities[0].level, 3);
}

TEST(RecordingText, EveryRecordableAttributeIsAnAttributeOfTheLibrary) {
  std::vector<std::int32_t> numbers;
  for (const AttributeLines& row : RecordableAttributes()) {
    numbers.push_back(row.number);
    EXPECT_EQ(FindRecordable(row.word()), &row);
  }
  // All but the identity, the domain and the time-out.
  EXPECT_EQ(numbers, (std::vector<std::int32_t>{2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17,
                                                18, 20, 21, 22}));
}

TEST(RecordingText, TimesAreReadAndWrittenInUtc) {
  for (const std::string time : {"1970-01-01T00:00:00Z", "2024-02-29T23:59:59Z",
                                 "0001-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
    std::string text = Complete();
    text.replace(text.find("2026-11-21T15:29:54Z"), time.size(), time);
    EXPECT_EQ(WriteRecording(ReadRecording(text)), text);
  }
}

TEST(RecordingText, WhatIsWrongInTheHeaderIsToldWithItsPlace) {
  const std::string header(kHeader);
  const std::string node = "node = \"node0000000000000000000000000001\"\n";
  const std::string title = "voltaris recording 1\n";
  const struct {
    std::string text;
    std::string reason;
  } cases[] = {
      {"", "1:1: this is no recording: it does not begin with 'voltaris recording '"},
      {"[node]\n", "1:1: this is no recording: it does not begin with 'voltaris recording '"},
      {"voltaris recording 2\nend\n",
       "1:20: the version of the recording is not 1, the one that is known here"},
      {"voltaris recording 1 \nend\n",
       "1:20: the version of the recording is not 1, the one that is known here"},
      {"voltaris recording 1", "1:1: the last line is not whole"},
      {title, "2:1: the line 'end' is missing: the recording is not whole"},
      {title + "end\n", "2:1: 'node' is missing above"},
      {header + "end\n", "5:1: 'attributes' is missing above"},
      {header + "attributes =\n", "6:1: the line 'end' is missing: the recording is not whole"},
      {header + "attributes =\nend", "6:1: the last line is not whole"},
      {header + "attributes =\nend\n\n", "7:1: there is something behind the end of the recording"},
      {header + "attributes =\nend x\n", "6:5: the line should end here"},
      {header + "entity = \"device00000000000000000000000001\" 1\n",
       "5:1: 'attributes' is missing above"},
      {header + node, "5:1: \"node\" stands here a second time"},
      {header + "place = \"x\"\n", "5:1: there is no \"place\" in a recording"},
      {header + "\x1b[31m = \"x\"\n", "5:1: there is no \"\\x1b[31m\" in a recording"},
      {header + "level = 3\n", "5:1: \"level\" is of an entity, and none has begun"},
      {header + "attributes\n", "5:11: there should be a = here"},
      {header + "attributes = level, lvl\n", "5:21: there is no attribute \"lvl\""},
      {header + "attributes = identity\n", "5:14: there is no attribute \"identity\""},
      {header + "attributes = level,\n", "5:20: an attribute is missing"},
      {header + "attributes = level level\n", "5:20: the line should end here"},
      {title + "node = \"short\"\n", "2:8: the identity of the node must have 32 bytes, and has 5"},
      {title + "time = 2026-11-31T00:00:00Z\n",
       "2:8: the time must be in UTC, such as 2026-11-21T15:29:54Z"},
      {title + "time = 2026-11-21 15:29:54\n",
       "2:8: the time must be in UTC, such as 2026-11-21T15:29:54Z"},
      {title + "time = 2026-11-21T24:00:00Z\n",
       "2:8: the time must be in UTC, such as 2026-11-21T15:29:54Z"},
      {title + "domain = \"a\\x00\"\n", "2:10: the domain must not hold a zero byte"},
      {title + "domain = \"" + std::string(256, 'x') + "\"\n",
       "2:10: the domain is longer than 255 bytes"},
      {title + std::string(16385, ' ') + "\nend\n", "2:1: the line is longer than 16384 bytes"},
  };
  for (const auto& c : cases) EXPECT_EQ(WhyNotRead(c.text), c.reason) << c.text.substr(0, 300);

  EXPECT_EQ(WhyNotRead(header + "attributes = level, usage\nend\n").substr(0, 38),
            "5:21: \"usage\" is not in its place: eac");
}

TEST(RecordingText, WhatIsWrongInAnEntityIsToldWithItsPlace) {
  const struct {
    std::string lines;
    std::string reason;
  } cases[] = {
      {"lvl = 3", "7:1: there is no attribute \"lvl\""},
      {"node = 3", "7:1: there is no attribute \"node\""},
      {"level = 3\nlevel = 3", "8:1: level stands here a second time"},
      {"level 3", "7:7: there should be a = here"},
      {"level =", "7:8: level is missing"},
      {"level = 256", "7:9: level must be a whole number from 0 to 255"},
      {"level = -1", "7:9: level must be a whole number from 0 to 255"},
      {"level = 3 W", "7:11: the line should end here"},
      {"level = 3\r", "7:9: level must be a whole number from 0 to 255"},
      {"level = 0x3", "7:9: level must be a whole number from 0 to 255"},
      {"units = 128", "7:9: units must be a whole number from -128 to 127"},
      {"usage = 65536", "7:9: usage must be a whole number from 0 to 65535"},
      {"usage = 1 W",
       "7:11: there should be nothing, or an exponent such as e-1, from e-128 to e127"},
      {"usage = 1 e128",
       "7:11: there should be nothing, or an exponent such as e-1, from e-128 to e127"},
      {"usage-vector = 1 2 3 4 5 6 7 8 9 10",
       "7:36: each of the 11 numbers of usage-vector is missing"},
      {"usage-vector = 1 2 3 4 5 6 7 8 9 10 11 12",
       "7:40: there should be nothing, or an exponent such as e-1, from e-128 to e127"},
      {"delta-vector = 0 0 0 0 0 2147483648 0 0 0 0 0",
       "7:26: each of the 11 numbers of delta-vector must be a whole number from -2147483648 to "
       "2147483647"},
      {"name = lamp", "7:8: name must be a text in double quotes"},
      {"name = \"\"", "7:8: name is empty: leave the line out, as a device would"},
      {"name = \"a\\x00b\"", "7:8: name must not hold a zero byte"},
      {"name = \"" + std::string(1401, 'x') + "\"", "7:8: name is longer than 1400 bytes"},
      {"keywords = \"a\",", "7:16: a keyword must be a text in double quotes"},
      {"keywords = \"a\" \"b\"", "7:16: the line should end here"},
      {"keywords = \"a,b\"", "7:12: a keyword must not hold a comma: write two"},
      {"keywords = \"\\x00\"", "7:12: a keyword must not hold a zero byte"},
      {"caliber = exact",
       "7:11: caliber must be max, presumed, unknown, actual, trusted, or a number"},
      {"category = consumers", "7:12: category must be consumer, producer, meter, or a number"},
      {"entity-type = 2147483648",
       "7:15: entity-type must be none, local, remote, corvane, admin-off, non-poe, or a number"},
      {"address = here:1",
       "7:11: address must be an address such as 192.0.2.7:7440, bytes such as 0x01ff, or - for "
       "none"},
      {"address = 192.0.2.7:65536",
       "7:11: address must be an address such as 192.0.2.7:7440, bytes such as 0x01ff, or - for "
       "none"},
      {"address = 0x01f",
       "7:11: address must be an address such as 192.0.2.7:7440, bytes such as 0x01ff, or - for "
       "none"},
      {"address = 0x01fg",
       "7:11: address must be an address such as 192.0.2.7:7440, bytes such as 0x01ff, or - for "
       "none"},
      {"address = 0x01ff", "7:11: address must be HOST:PORT, or 16 bytes such as 0x02001d10..."},
      {"address = -", "7:11: address must be HOST:PORT, or 16 bytes such as 0x02001d10..."},
      {"neighbor = \"short\" \"\" - 1",
       "7:12: the identity of the neighbor must have 32 bytes, and has 5"},
      {"neighbor = \"device00000000000000000000000001\" \"\" -", "7:51: the flag is missing"},
      {"recurrence = \"* *\" 256 0 0", "7:20: the first byte must be a whole number from 0 to 255"},
      {"recurrence = \"\\x00\" 0 0 0", "7:14: recurrence must not hold a zero byte"},
      {"entity = \"device00000000000000000000000001\" 1",
       "7:45: this entity stands here a second time"},
      {"entity = \"device00000000000000000000000001\" 0",
       "7:45: the number of the entity must be a whole number from 1 to 4294967295"},
      {"entity = \"device00000000000000000000000001\"",
       "7:44: the number of the entity is missing"},
  };
  for (const auto& c : cases) EXPECT_EQ(WhyNotRead(WithEntity(c.lines)), c.reason) << c.lines;
}

TEST(RecordingText, AValueThatWasNotAskedForIsRefused) {
  std::string text(kHeader);
  text += "attributes = name\nentity = \"device00000000000000000000000001\" 1\nlevel = 3\nend\n";
  EXPECT_EQ(WhyNotRead(text), "7:1: 'attributes' above does not list \"level\"");
}

TEST(RecordingText, EveryTruncationIsRefused) {
  const std::string whole = Complete();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_THROW((void)ReadRecording(whole.substr(0, size)), RecordingError) << size;
  }
}

// Step is the distance of the places that a sweep tries: all of them, but where each takes long.
std::size_t Step() {
  constexpr std::size_t thinned_out = 41;
  if (!vt::testing::IsWatched()) return 1;
  vt::testing::Note() << "under a sanitizer or memcheck: one place of " << thinned_out << " only\n";
  return thinned_out;
}

// Harmless is what is refused, or read as a recording that comes back from its own text.
void ExpectHarmless(const std::string& text, std::size_t& refused) {
  Recording recording;
  try {
    recording = ReadRecording(text);
  } catch (const RecordingError& error) {
    ++refused;
    ASSERT_GE(error.line(), 1u);
    ASSERT_GE(error.column(), 1u);
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    ASSERT_LE(error.line(), lines + 1);
    return;
  }
  const std::string written = WriteRecording(recording);
  ASSERT_EQ(WriteRecording(ReadRecording(written)), written);
}

TEST(RecordingText, EveryChangedByteIsRefusedOrHarmless) {
  const std::string whole = Complete();
  const std::size_t step = Step();
  std::size_t tried = 0;
  std::size_t refused = 0;
  for (std::size_t at = 0; at < whole.size(); at += step) {
    std::string changed = whole;
    for (unsigned bit = 1; bit < 256; bit <<= 1) {
      changed[at] = static_cast<char>(static_cast<unsigned char>(whole[at]) ^ bit);
      ExpectHarmless(changed, refused);
      ++tried;
    }
    for (const char other : std::string_view("\0\n\"\\=, 9-x#", 11)) {
      changed[at] = other;
      ExpectHarmless(changed, refused);
      ++tried;
    }
    if (HasFatalFailure()) return;
  }
  // Most of a recording is not text that may be anything.
  EXPECT_GT(refused, tried / 2) << refused << " of " << tried;
}

TEST(RecordingText, EveryRemovedAndDoubledByteIsRefusedOrHarmless) {
  const std::string whole = Complete();
  const std::size_t step = Step();
  std::size_t refused = 0;
  for (std::size_t at = 0; at < whole.size(); at += step) {
    std::string changed = whole;
    changed.erase(at, 1);
    ExpectHarmless(changed, refused);
    changed = whole;
    changed.insert(at, 1, whole[at]);
    ExpectHarmless(changed, refused);
    if (HasFatalFailure()) return;
  }
}

TEST(RecordingText, NeighborsAreBounded) {
  std::string lines;
  for (std::size_t i = 0; i <= kMostNeighbors; ++i) {
    lines += "neighbor = \"device00000000000000000000000002\" \"\" - 1\n";
  }
  EXPECT_EQ(WhyNotRead(WithEntity(lines)), "65542:1: there are too many of them");
}

}  // namespace
}  // namespace vt::recording
