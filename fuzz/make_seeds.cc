// Writes the seeds: hand-written messages of every type of element in both forms, and one for each
// thing that a hostile peer may say of a length or a count.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/input.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/hex.h"
#include "tests/harness/pdu_image.h"

namespace vt::fuzz {
namespace {

namespace fs = std::filesystem;
using testing::Cat;
using testing::Counted;
using testing::DeviceHeader;
using testing::Element;
using testing::ElementWithLength;
using testing::Hex;
using testing::PduImage;
using testing::Text;
using testing::U32;
using testing::operator+;  // NOLINT(misc-unused-using-decls): it is used
using Image = testing::Bytes;

class SeedFolder {
 public:
  explicit SeedFolder(fs::path folder) : folder_(std::move(folder)) {
    fs::create_directories(folder_);
  }

  void Add(const std::string& name, const Image& bytes) const {
    std::ofstream file(folder_ / name, std::ios::binary);
    for (const std::uint8_t byte : bytes) file.put(static_cast<char>(byte));
    if (!file.flush()) {
      (void)std::fprintf(stderr, "cannot write %s\n", (folder_ / name).c_str());
      std::exit(1);
    }
  }

 private:
  fs::path folder_;
};

Image Message(std::vector<Image> elements, std::uint8_t shipment = 1, std::uint8_t cls = 10,
              std::uint16_t action = 11) {
  PduImage image;
  image.elements = std::move(elements);
  image.shipment = shipment;
  image.cls = cls;
  image.action = action;
  Image wire = image.Unsigned();
  Sign(wire.data(), wire.size());
  return wire;
}

struct NamedElement {
  std::string name;
  Image wire;
};

std::vector<NamedElement> ValidElements() {
  std::vector<NamedElement> elements;
  for (const testing::TlvVector& vector : testing::AllVectors()) {
    char name[32];
    (void)std::snprintf(name, sizeof name, "type_%08x", static_cast<unsigned>(vector.type));
    elements.push_back({name, Hex(vector.wire)});
  }
  return elements;
}

// HostileElements state lengths and counts that are wrong in every way that is known to have hurt.
std::vector<NamedElement> HostileElements() {
  constexpr std::uint32_t kLengths[] = {0, 4, 11, 17, 0x80000070, 0xFFFFFFF4, 0xFFFFFFFF};
  constexpr std::uint32_t kCounts[] = {0x40000001, 0xFFFFFFFF, 3};
  std::vector<NamedElement> elements;
  char name[48];
  for (const std::uint32_t length : kLengths) {
    (void)std::snprintf(name, sizeof name, "length_%08x", static_cast<unsigned>(length));
    elements.push_back({name, ElementWithLength(3, length, 0, U32(7))});
    (void)std::snprintf(name, sizeof name, "counted_length_%08x", static_cast<unsigned>(length));
    elements.push_back(
        {name, Element(0x80000009, 0,
                       Cat({DeviceHeader("device"), U32(1), U32(1), U32(length), Text("name")}))});
    (void)std::snprintf(name, sizeof name, "device_length_%08x", static_cast<unsigned>(length));
    elements.push_back({name, Element(0x8000000D, 0,
                                      Cat({testing::Identity32("device"), U32(length), U32(1),
                                           U32(1), testing::U16(5)}))});
  }
  for (const std::uint32_t count : kCounts) {
    for (const std::uint32_t type : {0x8000002Au, 0x8000000Du, 0x8000002Bu}) {
      (void)std::snprintf(name, sizeof name, "count_%08x_of_%02x", static_cast<unsigned>(count),
                          static_cast<unsigned>(type & 0xFF));
      elements.push_back(
          {name, Element(type, 0,
                         Cat({DeviceHeader("device"), U32(count), U32(1), Image(27, 0), U32(2)}))});
    }
  }
  for (std::uint32_t type = 0; type <= VT_TLV_TYPE_COUNT; ++type) {
    (void)std::snprintf(name, sizeof name, "empty_%02x", static_cast<unsigned>(type));
    elements.push_back({name, Element(type, 0, {}) + Element(type | 0x80000000, 1, {})});
  }
  return elements;
}

// Of a message the elements may be too few or too many for its count, or of another length.
void AddDamagedMessages(const SeedFolder& folder) {
  for (const int count : {0, 2, 111, 0xFFFF}) {
    PduImage image;
    image.elements = {Element(3, 0, U32(7))};
    image.tlv_count = static_cast<std::uint16_t>(count);
    folder.Add("tlv_count_" + std::to_string(count), image.Signed(Image(20, 0xA5)));
  }
  for (const int bytes : {0, 15, 17, 0xFFFF}) {
    PduImage image;
    image.elements = {Element(3, 0, U32(7))};
    image.tlv_bytes = static_cast<std::uint16_t>(bytes);
    folder.Add("tlv_bytes_" + std::to_string(bytes), image.Signed(Image(20, 0xA5)));
  }
  PduImage header_alone;
  Image shortest = header_alone.Signed(Image(20, 0xA5));
  folder.Add("no_elements", shortest);
  shortest.erase(shortest.begin() + 12, shortest.begin() + 32);
  folder.Add("no_digest", shortest);
  shortest.pop_back();
  folder.Add("one_byte_short", shortest);
  PduImage wrong_key;
  wrong_key.byte0 = 1;
  wrong_key.elements = {Element(9, 0, Text("lamp"))};
  folder.Add("wrong_key", wrong_key.Signed(Image(20, 0xA5)));
  PduImage tagged;
  tagged.tag = 5;
  tagged.elements = {Element(9, 0, Text("lamp"))};
  folder.Add("tagged", tagged.Signed(Image(20, 0xA5)));
}

void AddMessages(const SeedFolder& folder) {
  std::vector<Image> all;
  for (const NamedElement& element : ValidElements()) {
    folder.Add(element.name, Message({element.wire}));
    if (Message(all).size() + element.wire.size() <= VT_MAX_PDU_SIZE) all.push_back(element.wire);
  }
  folder.Add("many_elements", Message(all));
  for (const NamedElement& element : HostileElements()) {
    folder.Add(element.name, Message({element.wire}));
  }
  AddDamagedMessages(folder);
}

Image Address() { return Hex("0200 1d10 c0a80107 8*00"); }

Image Aggregate(std::uint32_t type, std::string_view device, const std::vector<Image>& entries) {
  Image value = DeviceHeader(device, Address()) + U32(static_cast<std::uint32_t>(entries.size()));
  for (const Image& entry : entries) value = std::move(value) + entry;
  return Element(0x80000000u | type, 0, value);
}

Image Usage() {
  return Cat({U32(2), U32(3), Counted(Text("lamp")), Counted(Text("light")), Image{1, 2, 3},
              Counted(Text("a"))});
}

// AddExchanges writes streams of several replies, as a query gets them.
void AddExchanges(const SeedFolder& folder) {
  const Image accepted = Message({Aggregate(42, "b", {U32(1), U32(256)})}, 0xFF, 13, 10);
  const Image refused = Message({Aggregate(42, "a", {U32(2)})}, 0xFE, 13, 11);
  const Image later = Message({Aggregate(42, "c", {U32(2)})}, 0xFC);
  const Image plain =
      Message({Element(8, 0, Text("office")), Aggregate(13, "b", {U32(2) + Image{0, 9}}),
               Aggregate(12, "b", {U32(2) + Image{0}, U32(1) + Image{1}}),
               Aggregate(9, "a", {U32(1) + Counted(Text("lamp"))})});
  const Image combined = Message(
      {Aggregate(43, "b", {Cat({U32(2), Usage(), Image{0, 9}})}),
       Aggregate(44, "a", {Cat({U32(1), Usage(), Image(22, 1)})}),
       Aggregate(45, "c",
                 {Cat({U32(0), Usage(), Image(44, 1)}), Cat({U32(3), Usage(), Image(44, 2)})})},
      1, 11, 10);
  Image forged = plain;
  forged[0] |= 1;  // left unsigned
  forged.back() ^= 1;
  Image of_set = combined;
  of_set[2] = 1;
  Image of_sum = combined;
  of_sum[2] = 2;
  folder.Add("exchange_collect", Cat({accepted, refused, plain, combined, plain}));
  folder.Add("exchange_set", Cat({of_set, accepted, plain}));
  folder.Add("exchange_sum", Cat({of_sum, refused}));
  folder.Add("exchange_forged", Cat({forged, later, plain}));
  folder.Add("exchange_torn", Cat({accepted, Image(plain.begin(), plain.end() - 5)}));
  folder.Add("exchange_both_ways",
             Message({Aggregate(42, "b", {U32(1)}), Aggregate(38, "b", {U32(1) + U32(2)})}, 0xFF));
}

void AddStreams(const SeedFolder& folder) {
  const Image small = Message({});
  const Image large = Message({Element(0, 0, Image(1400 - 92, 0xEE))});
  const Image too_large = Message({Element(0, 0, Image(1401 - 92, 0xEE))});
  PduImage of_18;
  of_18.digest_len = 18;
  PduImage of_1320;
  of_1320.digest_len = 1320;
  PduImage of_1340;
  of_1340.digest_len = 1340;
  PduImage of_65535;
  of_65535.digest_len = 65535;
  folder.Add("whole", Cat({{0}, small, small}));
  folder.Add("waited_for", Cat({{16}, small, small}));
  folder.Add("in_pieces", Cat({{3, 1, 5, 200}, small, Message({Element(9, 0, Text("lamp"))})}));
  folder.Add("interrupted", Cat({{2, 12, 0}, small}));
  folder.Add("largest", Cat({{0}, large, small}));
  folder.Add("too_large", Cat({{0}, too_large}));
  folder.Add("small_buffer", Cat({{32}, small}));
  folder.Add("buffer_of_77", Cat({{224}, small}));
  folder.Add("digest_of_18", Cat({{0}, of_18.Unsigned()}));
  folder.Add("digest_of_1320", Cat({{0}, of_1320.Unsigned(), Image(1320, 0)}));
  folder.Add("digest_of_1340", Cat({{0}, of_1340.Unsigned(), Image(1340, 0)}));
  folder.Add("digest_of_65535", Cat({{0}, of_65535.Unsigned()}));
  folder.Add("torn_header", Cat({{0}, Image(small.begin(), small.begin() + 5)}));
  folder.Add("torn_message", Cat({{0}, Image(small.begin(), small.end() - 1)}));
  folder.Add("nothing", {0});
}

void AddFilters(const SeedFolder& folder) {
  const auto behind = [](std::uint8_t importance, std::uint8_t switches, std::uint32_t category,
                         std::string_view texts) {
    return Cat({Image{importance, switches}, U32(category), Text(texts)});
  };
  using std::string_view_literals::operator""sv;
  const Image query = Message({Element(9, 1, Text("lamp*")), Element(7, 1, Text("light")),
                               Element(10, 1, Hex("6100 6363 00")), Element(51, 1, U32(1))});
  folder.Add("matching", query + behind(0, 0, 1, "lamp-7\0light\0a,c\0my room, x\ty"sv));
  folder.Add("other_name", query + behind(0, 0, 2, "tool\0light\0cc\0CV_CLASS_QUERY"sv));
  folder.Add("important", query + behind(9, 0, 1, "lamp\0light\0a\0CV_SHIPMENT_ACK_LATERX"sv));
  folder.Add("undescribed", query + behind(0, 15, 1, "\0\0\0CV_CORVANE_TLV_TYPE_NAME"sv));
  folder.Add("addressed", Message({Element(1, 1, Image(32, 0xA0) + U32(1))}) +
                              behind(0, 0, 13, "lamp\0light\0a\0CV_CORVANE_TLV_TYPE_RESERVED_"sv));
  folder.Add("addressed_to_other", Message({Element(1, 1, Image(32, 0xA1) + U32(1))}) +
                                       behind(0, 0, 10, "lamp\0light\0a\0,,a,,"sv));
  folder.Add("empty_qualifiers", Message({Element(9, 1, {}), Element(7, 1, {}), Element(10, 1, {}),
                                          Element(51, 1, {})}) +
                                     behind(0, 0, 1, "\0\0,\0 a, b\tc "sv));
  folder.Add("empty_identity",
             Message({Element(1, 1, {})}) + behind(0, 0, 1, "lamp\0light\0a\0*"sv));
  folder.Add("unfiltered", Message({Element(3, 0, U32(1))}) +
                               behind(0, 0, 1, "lamp\0light\0a\0~!@#$%^&()_-+={}[]\\:.,></"sv));
}

void AddCodecCalls(const SeedFolder& folder) {
  const Image values[] = {Image{0x81},
                          Image{0x81},
                          Image{0x81, 2},
                          U32(0x80000001),
                          U32(0x80000001),
                          U32(0x80000001),
                          U32(0x80000001),
                          Counted(Text("lamp")),
                          Counted(Text("lamp")),
                          Counted(Text("lamp")),
                          Image(32, 1),
                          Image(32, 1) + U32(5),
                          U32(5) + Image(32, 1),
                          DeviceHeader("device", Address()),
                          Hex("01020304 05 f6 fffffffe 7ffffffd"),
                          Cat({Counted(Text("0 12")), Hex("2a 07 80000001")}),
                          Cat({Image(32, 1), Counted(Text("abc")), Counted(Text("de")), U32(1)}),
                          Usage(),
                          Image(44, 1),
                          Image(22, 1),
                          Element(13, 0, Image{1, 2})};
  for (std::size_t i = 0; i < std::size(values); ++i) {
    const auto kind = static_cast<std::uint8_t>(i);
    const std::string name = "kind_" + std::to_string(i);
    folder.Add(name, Image{kind, 0} + values[i]);
    folder.Add(name + "_short", Image{kind, 1} + values[i]);
    folder.Add(name + "_negative", Image{kind, 0xFF} + values[i]);
    for (const std::uint32_t length : {0u, 0x80000000u, 0xFFFFFFFFu}) {
      folder.Add(name + "_length_" + std::to_string(length),
                 Cat({Image{kind, 0}, U32(length), values[i]}));
    }
  }
}

void AddElements(const SeedFolder& folder) {
  for (const NamedElement& element : ValidElements()) folder.Add(element.name, element.wire);
  for (const NamedElement& element : HostileElements()) folder.Add(element.name, element.wire);
  folder.Add("text_with_zero", Element(9, 0, Hex("6100 62")));
  folder.Add("unknown", Element(60, 0, Image(8, 1)) + Element(0x8000003C, 0, Image(8, 1)));
  folder.Add("mismatched", Element(13, 0, Image(4, 1)));
}

void WriteSeeds(const fs::path& folder) {
  AddMessages(SeedFolder(folder / "event_decode"));
  AddElements(SeedFolder(folder / "element_round_trip"));
  AddMessages(SeedFolder(folder / "fold"));
  AddExchanges(SeedFolder(folder / "fold"));
  AddStreams(SeedFolder(folder / "framing"));
  AddStreams(SeedFolder(folder / "collection"));
  AddMessages(SeedFolder(folder / "reply_pool"));
  AddExchanges(SeedFolder(folder / "reply_pool"));
  AddFilters(SeedFolder(folder / "filters_and_names"));
  AddCodecCalls(SeedFolder(folder / "codec_calls"));
}

}  // namespace
}  // namespace vt::fuzz

int main(int argc, char** argv) {
  if (argc != 2) {
    (void)std::fprintf(stderr, "usage: make_seeds FOLDER\n");
    return 2;
  }
  vt::fuzz::WriteSeeds(argv[1]);
  return 0;
}
