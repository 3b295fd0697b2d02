// Whole exchanges without memory: every allocation fails once, and from there on. Each call then
// gives the status that its header states, what was there before it is untouched, the message that
// goes out is exactly what the query still holds, the result holds exactly what it was given memory
// for, everything that survived can be used, and all of it is released. Nothing here is sampled.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "tests/harness/note.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

constexpr std::uint32_t kSlotBlock = 16;  // elements by which a list grows
constexpr std::int32_t kMostAttribute = 22;

// What is set, or qualified with, for each attribute.
const void* SampleValue(std::int32_t attribute) {
  static char text[] = "0 1 * *";
  static char label[] = "fan";
  static std::uint8_t data[] = {1, 2, 3};
  static const sender_id identity = {{{'l', 'a', 'm', 'p'}}, 3};
  static const std::uint16_t number16 = 700;
  static const std::int32_t number32 = -2;
  static const std::uint8_t address[16] = {2, 0, 0x1d, 0x10, 127, 0, 0, 1};
  static const neighbor ngbr = {0, {{'n'}}, label, sizeof data, data, 1, {}};
  static const delta_vector deltas = {{-5, -4, -3, -2, -1, 0, 1, 2, 3, 4, 5}};
  static const usage_vector usages = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
  static const recurrence recur = {text, 1, 2, 3};
  switch (attribute) {
    case VT_ATTRIBUTE_ID:
      return &identity;
    case VT_ATTRIBUTE_KEYWORDS:
      return "a,b";
    case VT_ATTRIBUTE_ROLE:
    case VT_ATTRIBUTE_DOMAIN:
    case VT_ATTRIBUTE_NAME:
    case VT_ATTRIBUTE_ERROR_STRING:
    case VT_ATTRIBUTE_TEXT_21:
      return "lamp";
    case VT_ATTRIBUTE_USAGE:
    case VT_ATTRIBUTE_NEIGHBOR_COUNT:
      return &number16;
    case VT_ATTRIBUTE_REPLY_TO:
      return address;
    case VT_ATTRIBUTE_NEIGHBOR:
      return &ngbr;
    case VT_ATTRIBUTE_DELTA_VECTOR:
      return &deltas;
    case VT_ATTRIBUTE_USAGE_VECTOR:
      return &usages;
    case VT_ATTRIBUTE_RECURRENCE:
      return &recur;
    default:
      return &number32;  // of integers narrower than 32 bits, the first bytes
  }
}

// Step is one call that adds to a query.
struct Step {
  enum class Kind { kGet, kSumGet, kSet, kQualifier };
  Kind kind;
  std::int32_t attribute;
  std::function<std::int32_t(Query*)> add;

  std::string Name() const {
    static const char* const kNames[] = {"get ", "get of a sum ", "set ", "qualifier "};
    return kNames[static_cast<int>(kind)] + std::to_string(attribute);
  }
};

Step Get(std::int32_t attribute, bool sum = false) {
  return {sum ? Step::Kind::kSumGet : Step::Kind::kGet, attribute,
          [=](Query* query) { return voltaris_addGetAttribute(query, attribute); }};
}

Step Set(std::int32_t attribute) {
  return {Step::Kind::kSet, attribute, [=](Query* query) {
            return voltaris_addSetAttribute(query, attribute, SampleValue(attribute));
          }};
}

Step Qualify(std::int32_t attribute) {
  return {Step::Kind::kQualifier, attribute, [=](Query* query) {
            return voltaris_addQualifier(query, attribute, SampleValue(attribute));
          }};
}

Step QualifyBy(std::int32_t attribute, std::int32_t (*add)(Query*, const void*)) {
  return {Step::Kind::kQualifier, attribute,
          [=](Query* query) { return add(query, SampleValue(attribute)); }};
}

// Every qualifier, by both names of its call.
std::vector<Step> EveryQualifier() {
  return {Qualify(1),
          Qualify(2),
          Qualify(4),
          Qualify(5),
          Qualify(19),
          QualifyBy(1, voltaris_addIdQualifier),
          QualifyBy(2, voltaris_addRoleQualifier),
          QualifyBy(4, voltaris_addNameQualifier),
          QualifyBy(5, voltaris_addKeyQualifier)};
}

std::vector<Step> EveryAttribute(Step (*step)(std::int32_t)) {
  std::vector<Step> steps;
  for (std::int32_t attribute = 1; attribute <= kMostAttribute; ++attribute) {
    steps.push_back(step(attribute));
  }
  return steps;
}

std::vector<Step> WithEveryQualifier(std::vector<Step> steps) {
  const std::vector<Step> qualifiers = EveryQualifier();
  steps.insert(steps.end(), qualifiers.begin(), qualifiers.end());
  return steps;
}

// Kind is a kind of query with all that is added to it.
struct Kind {
  Query* (*create)();
  std::vector<Step> steps;
};

Kind CollectOfEverything() {
  return {
      [] { return voltaris_createCollectQuery("office", 7); },
      WithEveryQualifier(EveryAttribute([](std::int32_t attribute) { return Get(attribute); }))};
}

Kind FurtherOfEverything() {
  return {
      [] { return voltaris_createQuery(VT_QUERY, VT_QUERY_FURTHER, "office", 7); },
      WithEveryQualifier(EveryAttribute([](std::int32_t attribute) { return Get(attribute); }))};
}

Kind SetOfEverything() {
  return {[] { return voltaris_createSetQuery("office", 7); },
          WithEveryQualifier(EveryAttribute(Set))};
}

Kind SetThatReadsEverything() {
  return {
      [] { return voltaris_createSetQuery("office", 7); },
      WithEveryQualifier(EveryAttribute([](std::int32_t attribute) { return Get(attribute); }))};
}

Kind SumOfEverything() {
  return {[] { return voltaris_createSumQuery("office", 7); },
          WithEveryQualifier({Get(8, true), Get(16, true)})};
}

// Little, for streams that are long.
Kind CollectOfUsage() {
  return {[] { return voltaris_createCollectQuery("office", 7); }, {Get(8), Qualify(5)}};
}

Kind SetOfLevel() {
  return {[] { return voltaris_createSetQuery("office", 7); }, {Set(9), Qualify(4)}};
}

// With its domain a query of 16 elements, so that the time-out that execution adds makes the list
// grow.
Kind CollectWithoutATimeout() {
  std::vector<Step> steps;
  for (std::int32_t i = 0; i < 15; ++i) steps.push_back(Get(i + 1));
  return {[] { return voltaris_createCollectQuery("office", 7); }, steps};
}

// ElementsOf gives the elements of a query themselves, by which it is told cheaply that they stay.
std::vector<const Tlv*> ElementsOf(const Query* query) {
  std::vector<const Tlv*> elements;
  elements.reserve(64);
  const Event& event = *query->event;
  const std::uint32_t slots = std::min<std::uint32_t>(event.pak->tlv_count, event.tlv_capacity);
  for (std::uint32_t i = 0; i < slots; ++i) {
    if (event.tlvs[i] != nullptr) elements.push_back(event.tlvs[i]);
  }
  return elements;
}

std::vector<std::int32_t> ColumnsOf(const Query* query) {
  std::vector<std::int32_t> columns;
  columns.reserve(64);
  const queue_element* element = query->attributes.head;
  for (; element != nullptr; element = element->next) {
    columns.push_back(reinterpret_cast<const attribute_list_entry*>(element)->attribute);
  }
  return columns;
}

// QueryContents is what a query holds: its elements as they travel, and its columns.
struct QueryContents {
  std::vector<Bytes> elements;
  std::vector<std::int32_t> columns;
  std::uint32_t counted = 0;  // elements, as the header counts them
};

QueryContents ContentsOf(const Query* query) {
  QueryContents contents;
  contents.counted = query->event->pak->tlv_count;
  for (const Tlv* tlv : ElementsOf(query)) contents.elements.push_back(Wire(tlv));
  contents.columns = ColumnsOf(query);
  return contents;
}

template <class List>
bool BeginsWith(const List& whole, const List& part) {
  return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

template <class List>
List Behind(const List& list, std::size_t begin) {
  return List(list.begin() + static_cast<std::ptrdiff_t>(begin), list.end());
}

// Plan is a kind of query with what each of its steps adds when there is memory.
struct Plan {
  struct Addition {
    std::string name;
    Bytes element;
    std::vector<std::int32_t> columns;
  };
  Kind kind;
  Bytes domain;
  std::vector<Addition> additions;

  explicit Plan(Kind chosen) : kind(std::move(chosen)) {
    const QueryPtr query(kind.create());
    QueryContents before = ContentsOf(query.get());
    domain = before.elements.at(0);
    for (const Step& step : kind.steps) {
      EXPECT_EQ(step.add(query.get()), 0) << step.Name();
      QueryContents after = ContentsOf(query.get());
      Addition addition;
      const std::vector<Bytes> elements = Behind(after.elements, before.elements.size());
      EXPECT_EQ(elements.size(), 1u) << step.Name();
      addition.name = step.Name();
      addition.element = elements.at(0);
      addition.columns = Behind(after.columns, before.columns.size());
      additions.push_back(std::move(addition));
      before = std::move(after);
    }
  }
};

// Letter is a reply with a number by which it is known, its position in the stream.
struct Letter {
  Bytes wire;
  std::uint32_t number;
};

void Number(std::vector<PduImage>& images, std::vector<Letter>& stream) {
  for (PduImage& image : images) {
    image.seq = static_cast<std::uint32_t>(stream.size());
    stream.push_back({SignedReply(image), image.seq});
  }
}

// Replies that hold every type, plain and aggregated, as many to a message as fit.
std::vector<PduImage> RepliesOfEveryType() {
  std::vector<PduImage> images;
  std::size_t room = 0;
  for (const TlvVector& vector : AllVectors()) {
    Bytes element = Hex(vector.wire);
    if (element.size() > room) {
      images.push_back(ReplyWith({}));
      room = VT_MAX_PDU_SIZE - VT_PDU_HEADER_SIZE;
    }
    room -= element.size();
    images.back().elements.push_back(std::move(element));
  }
  return images;
}

// Acknowledgements of more entities than the arrays begin with. Their class is not one of answers,
// so that they make no rows.
std::vector<PduImage> ManyAcknowledgements(std::int8_t shipment) {
  std::vector<PduImage> images;
  for (std::uint32_t message = 0; message < 4; ++message) {
    std::vector<Bytes> entries;
    for (std::uint32_t i = 0; i < 260; ++i) entries.push_back(Entry(message * 260 + i + 1));
    images.push_back(ReplyWith({Aggregate(42, "lamp", entries)}, shipment));
    images.back().cls = CV_CLASS_REPLY;
  }
  return images;
}

// A few rows of both shapes, acknowledgements, and messages that are dropped.
std::vector<Letter> ShortStream() {
  Combined all;
  all.name = "all";
  all.role = "lamps";
  all.keywords = "a,b";
  all.data = {1, 2};
  std::vector<PduImage> images = {RichReply(-1), RichReply(-2), RichReply(), ReplyWith({}),
                                  ReplyWith({Aggregate(43, "total", {all.At(1), all.At(2)}),
                                             Aggregate(13, "lamp", {Entry(9, {0, 1})})})};
  std::vector<Letter> stream;
  Number(images, stream);
  // One that is forged and one that cannot be decoded: they never count.
  PduImage forged = RichReply();
  forged.seq = 1000;
  stream.insert(stream.begin() + 1, {forged.Signed(Bytes(20, 1)), 1000});
  PduImage damaged = ReplyWith({Element(13, 0, {1, 2}), Element(13, 0, {1, 2, 3})});
  damaged.seq = 1001;
  stream.insert(stream.begin() + 3, {SignedReply(damaged), 1001});
  return stream;
}

std::vector<Letter> With(std::vector<Letter> stream, std::vector<PduImage> images) {
  Number(images, stream);
  return stream;
}

// A value as text that is the same in every run.
std::string ValueText(const attribute_node& node) {
  Bytes value(node.length);
  if (node.type == VT_ATTRIBUTE_NEIGHBOR && node.value != nullptr) {
    vt_pack_neighbor(value.data(), static_cast<const neighbor*>(node.value));
  } else if (node.type == VT_ATTRIBUTE_RECURRENCE && node.value != nullptr) {
    vt_pack_recurrence(value.data(), static_cast<const recurrence*>(node.value));
  } else if (!value.empty()) {
    std::memcpy(value.data(), node.value, value.size());
  }
  std::string text = std::to_string(node.type);
  text.append("=").append(value.begin(), value.end());
  return text;
}

using AckBytes = std::array<std::uint8_t, sizeof(AckEntry)>;

std::vector<AckBytes> AckList(const AckEntry* entries, std::int32_t count) {
  std::vector<AckBytes> list(static_cast<std::size_t>(count));
  if (count > 0) std::memcpy(list.data(), entries, list.size() * sizeof(AckEntry));
  return list;
}

// ResultContents is what a result holds. Values are sorted: rows and their values are compared as
// sets, and that rows come in order is checked by the walk.
struct ResultContents {
  std::vector<std::string> values;  // "device/entity" and "device/entity 8=..."
  std::vector<AckBytes> acks;
  std::vector<AckBytes> naks;
  std::int32_t answers_received = 0;
  std::int32_t answers_pending = 0;
  std::string domain;
};

ResultContents ContentsOf(ResultSet* result) {
  ResultContents contents;
  contents.answers_received = result->answers_received;
  contents.answers_pending = result->answers_pending;
  contents.acks = AckList(voltaris_getAcks(result), voltaris_getAckCount(result));
  contents.naks = AckList(voltaris_getNaks(result), voltaris_getNakCount(result));
  contents.domain = result->domain != nullptr ? result->domain : "";
  std::int32_t rows = 0;
  AckEntry last = {};
  while (ResultRow* const row = voltaris_getNextRow(result)) {
    std::uint32_t length = 0;
    const void* const id = voltaris_getAttributeFromRowByType(row, VT_ATTRIBUTE_ID, &length);
    AckEntry here;
    std::memcpy(&here, id, sizeof here);
    const int order = rows == 0 ? -1 : std::memcmp(&last, &here, sizeof last.device_id);
    EXPECT_TRUE(order < 0 || (order == 0 && last.entity_index < here.entity_index));
    last = here;
    ++rows;
    std::string name(reinterpret_cast<const char*>(here.device_id), sizeof here.device_id);
    name.append("/").append(std::to_string(here.entity_index));
    contents.values.push_back(name);
    for (const queue_element* at = row->attributes->head; at != nullptr; at = at->next) {
      const auto* node = reinterpret_cast<const attribute_node*>(at);
      contents.values.push_back(name);
      contents.values.back().append(" ").append(ValueText(*node));
    }
    for (std::int32_t attribute = 1; attribute <= kMostAttribute; ++attribute) {
      (void)voltaris_getAttributeFromRowByType(row, attribute, &length);
    }
  }
  EXPECT_EQ(rows, voltaris_getRowCount(result));
  std::sort(contents.values.begin(), contents.values.end());
  return contents;
}

template <class List>
bool IsPartOf(const List& part, const List& whole) {
  return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

// Node is the peer of a sweep: it takes one query after the other, and answers each with the same
// stream.
class Node {
 public:
  explicit Node(Bytes answer)
      : answer_(std::move(answer)),
        peer_(
            [this](PeerConnection& c) {
              Bytes query = c.ReadPdu();
              {
                const std::lock_guard lock(mutex_);
                query_ = std::move(query);
              }
              c.Send(answer_);
            },
            1000000) {}

  std::uint16_t port() const { return peer_.port(); }

  // TakeQuery returns the query that was answered last. Its answer must have been read.
  Bytes TakeQuery() {
    const std::lock_guard lock(mutex_);
    return std::exchange(query_, {});
  }

 private:
  Bytes answer_;
  std::mutex mutex_;
  Bytes query_;
  ScriptedPeer peer_;
};

// ExchangeSweep runs one kind of query against one stream, and knows what has to come of it.
class ExchangeSweep {
 public:
  ExchangeSweep(Kind kind, std::vector<Letter> stream)
      : plan_(std::move(kind)), stream_(std::move(stream)), node_(Joined(stream_)) {}

  // Run returns how many allocations were failed in turn.
  std::size_t Run(Failing failing) {
    return SweepAllocationFailures(failing, [this](AllocationFault& fault) {
      const LiveBlocks live;
      {
        const FillAllocations fill;
        const LogCapture log(kInfo);
        fault_ = &fault;
        log_ = &log;
        Exchange();
      }
      EXPECT_EQ(live.count(), 0) << "blocks leaked";
    });
  }

 private:
  // Attempt watches one call.
  class Attempt {
   public:
    explicit Attempt(ExchangeSweep& sweep) : sweep_(sweep), failed_(sweep.fault_->failed()) {}
    // Struck tells whether an allocation has been failed since.
    bool Struck() const { return sweep_.fault_->failed() != failed_; }

   private:
    ExchangeSweep& sweep_;
    std::size_t failed_;
  };

  static Bytes Joined(const std::vector<Letter>& stream) {
    Bytes bytes;
    for (const Letter& letter : stream) {
      bytes.insert(bytes.end(), letter.wire.begin(), letter.wire.end());
    }
    return bytes;
  }

  // Lines takes the lines that were reported since the last call.
  Lines Reported() const {
    Lines lines = log_->lines();
    const_cast<LogCapture*>(log_)->Clear();
    return lines;
  }

  void Exchange() {
    const SessionPtr session = CreateSession();
    if (session == nullptr) return;
    const QueryPtr query = CreateQuery();
    if (query == nullptr) return;
    elements_ = ElementsOf(query.get());
    columns_.clear();
    for (std::size_t i = 0; i < plan_.kind.steps.size(); ++i) Add(query.get(), i);
    const std::vector<std::int32_t> columns = columns_;
    if (!Execute(session.get(), query.get())) return;
    Collect(session.get(), query.get(), columns);
    EXPECT_EQ(TakenQueryMatches(), "");
  }

  SessionPtr CreateSession() {
    const Attempt attempt(*this);
    SessionPtr session = LoopbackSession(node_.port());
    EXPECT_EQ(session == nullptr, attempt.Struck());
    EXPECT_EQ(Reported(), session == nullptr
                              ? (Lines{{kFatal, "voltaris_createSession: out of memory"}})
                              : Lines{});
    return session;
  }

  // CreateQuery returns a query; when there is none for want of memory, one that is made later.
  QueryPtr CreateQuery() {
    const Attempt attempt(*this);
    QueryPtr query(plan_.kind.create());
    const Lines lines = Reported();
    if (query == nullptr) {
      EXPECT_TRUE(attempt.Struck());
      EXPECT_TRUE(lines == (Lines{{kFatal, "voltaris_createQuery: out of memory"}}) ||
                  lines == (Lines{{kError,
                                   "voltaris_createQuery: Error creating new query packet, could "
                                   "not allocate sufficient memory."}}));
      fault_->Disarm();
      query.reset(plan_.kind.create());
      if (query == nullptr) {
        ADD_FAILURE() << "there is no query although there is memory";
        return nullptr;
      }
      held_ = {plan_.domain};
      EXPECT_EQ(ContentsOf(query.get()).elements, held_);
      return query;
    }
    EXPECT_EQ(lines, Lines{});
    const QueryContents contents = ContentsOf(query.get());
    // Without memory for its domain a query has none.
    held_.clear();
    if (!attempt.Struck()) held_.push_back(plan_.domain);
    EXPECT_EQ(contents.elements, held_);
    EXPECT_EQ(contents.counted, contents.elements.size());
    EXPECT_EQ(contents.columns, std::vector<std::int32_t>{});
    return query;
  }

  void Add(Query* query, std::size_t i) {
    const Step& step = plan_.kind.steps[i];
    const Plan::Addition& addition = plan_.additions[i];
    SCOPED_TRACE(addition.name);
    const std::vector<const Tlv*> before = std::move(elements_);
    const std::vector<std::int32_t> columns_before = std::move(columns_);
    const std::uint32_t counted = query->event->pak->tlv_count;
    const bool must_grow = counted >= query->event->tlv_capacity;
    const Attempt attempt(*this);
    const std::int32_t status = step.add(query);
    const bool struck = attempt.Struck();
    const Lines lines = Reported();

    // Columns are added in order, as far as there is memory.
    columns_ = ColumnsOf(query);
    EXPECT_EQ(query->attribute_count, columns_.size());
    ASSERT_TRUE(BeginsWith(columns_, columns_before));
    const std::vector<std::int32_t> new_columns = Behind(columns_, columns_before.size());
    EXPECT_TRUE(BeginsWith(addition.columns, new_columns));
    const bool columns_complete = new_columns == addition.columns;

    // A list that could not grow is lost with its elements; else it is as before, or longer by one.
    elements_ = ElementsOf(query);
    const std::vector<const Tlv*>& after = elements_;
    const bool lost_list = must_grow && query->event->tlvs == nullptr;
    const bool unchanged = after == before;
    const bool longer = after.size() == before.size() + 1 && BeginsWith(after, before);
    ASSERT_TRUE(lost_list || unchanged || longer);
    EXPECT_EQ(query->event->pak->tlv_count, counted + (longer ? 1 : 0));
    if (lost_list) held_.clear();
    const Bytes element = longer ? Wire(after.back()) : Bytes();
    if (longer) held_.push_back(element);
    const bool added = longer && element == addition.element;

    if (!struck) {
      EXPECT_EQ(status, 0);
      EXPECT_EQ(lines, Lines{});
      EXPECT_TRUE(added);
      EXPECT_TRUE(columns_complete);
      return;
    }
    switch (step.kind) {
      case Step::Kind::kGet:
      case Step::Kind::kSet:
        EXPECT_EQ(status, -1);
        EXPECT_EQ(longer, added);
        EXPECT_FALSE(columns_complete);
        EXPECT_EQ(lines, added ? (Lines{{kFatal, step.kind == Step::Kind::kGet
                                                     ? "voltaris_addGetAttribute: Out of memory"
                                                     : "voltaris_addSetAttribute: Out of memory"}})
                               : Lines{});
        if (!added) {
          EXPECT_EQ(new_columns, std::vector<std::int32_t>{});
        }
        return;
      case Step::Kind::kQualifier:
        EXPECT_EQ(status, longer ? 0 : -1);
        if (longer) {
          // Keywords that could not be made into a list travel as they are.
          EXPECT_EQ(step.attribute, VT_ATTRIBUTE_KEYWORDS);
          EXPECT_EQ(element, Element(10, 1, Terminated("a,b")));
        }
        EXPECT_EQ(lines,
                  longer ? Lines{}
                         : (Lines{{kError, "voltaris_addQualifier: add qualifier failed, err=1"}}));
        return;
      case Step::Kind::kSumGet:
        // The column counts; its element may be missing, or be without its entry.
        EXPECT_EQ(status, columns_complete ? 0 : -1);
        EXPECT_EQ(lines, columns_complete
                             ? Lines{}
                             : (Lines{{kFatal, "voltaris_addGetAttribute: Out of memory"}}));
        if (longer && !added) {
          // The element's header, the device without data, and no entries.
          EXPECT_EQ(element.size(), 52u);
          EXPECT_EQ(Head(element, 4), Head(addition.element, 4));
        }
        return;
    }
  }

  static bool HasTimeout(const std::vector<Bytes>& elements) {
    return std::any_of(elements.begin(), elements.end(), [](const Bytes& element) {
      return Head(element, 12) == Hex("00000029 0000000d 00000000");
    });
  }

  // Execute executes the query, with memory if it has to; then it must succeed.
  bool Execute(Session* session, Query* query) {
    QueryContents contents = ContentsOf(query);
    EXPECT_EQ(contents.elements, held_);
    const bool adds_timeout = !HasTimeout(contents.elements);
    const std::uint32_t number = session->sequence_number;
    EXPECT_EQ(number, 0u);
    may_be_empty_ = false;
    const Attempt attempt(*this);
    std::int32_t status = voltaris_execQuery(session, query);
    const bool struck = attempt.Struck();
    const Lines lines = Reported();
    if (status != 0) {
      EXPECT_TRUE(struck);
      EXPECT_EQ(status, -1);
      EXPECT_EQ(lines, (Lines{{kError, "voltaris_execQuery: create pdu failed, err=1"}}));
      if (query->event == nullptr) {
        ADD_FAILURE() << "the query is gone";
        return false;
      }
      EXPECT_EQ(query->session, nullptr);
      // Nothing was sent, so there is nothing to collect.
      EXPECT_EQ(voltaris_queryResults(session, query), nullptr);
      EXPECT_EQ(Reported(), (Lines{{kError,
                                    "voltaris_queryResults: Query failed to execute, no results "
                                    "available."}}));
      // The time-out may have been added by now, or the list be lost to it. The rest is untouched.
      QueryContents left = ContentsOf(query);
      ExpectForTimeout(contents, left, true);
      fault_->Disarm();
      contents = std::move(left);
      const bool adds_now = !HasTimeout(contents.elements);
      status = voltaris_execQuery(session, query);
      EXPECT_EQ(status, 0) << "with memory again";
      if (status != 0) return false;
      EXPECT_EQ(session->sequence_number, number + 2);
      if (adds_now) AddTimeout(contents);
    } else {
      EXPECT_EQ(lines, Lines{});
      EXPECT_EQ(session->sequence_number, number + 1);
      if (adds_timeout && !struck) AddTimeout(contents);
      // Without memory for the time-out the message has none, and is without elements if the list
      // could not grow for it.
      may_be_empty_ = adds_timeout && struck && contents.counted % kSlotBlock == 0;
      EXPECT_TRUE(adds_timeout || !struck);
    }
    EXPECT_EQ(query->event, nullptr);
    expected_query_ = contents;
    expected_number_ = session->sequence_number - 1;
    return true;
  }

  static Bytes Timeout() { return Element(41, 0, {6}); }

  static void AddTimeout(QueryContents& contents) {
    contents.elements.push_back(Timeout());
    ++contents.counted;
  }

  static void ExpectForTimeout(const QueryContents& before, const QueryContents& after,
                               bool may_fail) {
    QueryContents with = before;
    if (!HasTimeout(before.elements)) AddTimeout(with);
    const bool lost_list = before.counted % kSlotBlock == 0 && after.elements.empty();
    EXPECT_TRUE(after.elements == with.elements ||
                (may_fail && (after.elements == before.elements || lost_list)));
    EXPECT_EQ(after.columns, before.columns);
  }

  // TakenQueryMatches tells what is wrong with the message that the peer got.
  std::string TakenQueryMatches() {
    const AllocationFault::Pause pause;
    const Bytes query = node_.TakeQuery();
    if (query.size() < VT_PDU_HEADER_SIZE) return "there was no message";
    if (Sign(query, SessionKey()) != query) return "the message is not signed";
    const Bytes elements(query.begin() + VT_PDU_HEADER_SIZE, query.end());
    Bytes expected;
    for (const Bytes& element : expected_query_.elements) expected = std::move(expected) + element;
    if (elements != expected && !(may_be_empty_ && elements.empty()))
      return "the message does not hold what the query held";
    const Bytes head = Head(query, VT_PDU_HEADER_SIZE);
    if (Bytes(head.begin() + 32, head.begin() + 36) != U32(expected_number_)) return "its number";
    if (Bytes(head.begin() + 78, head.end()) !=
        U16(static_cast<std::uint16_t>(expected_query_.counted))) {
      return "its count of elements";
    }
    // A message whose list was lost still counts its elements, so that no node takes it for a query
    // of everything: it cannot be decoded.
    const std::size_t there = elements.empty() ? 0 : expected_query_.elements.size();
    const EventPtr event(
        cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(query.size()), query.data()));
    const bool decodes = cv_unpack_event(event.get(), &key_) == 0;
    if (decodes != (there == expected_query_.counted)) return "whether it can be decoded";
    return "";
  }

  void Collect(Session* session, Query* query, const std::vector<std::int32_t>& columns) {
    const Attempt attempt(*this);
    ResultPtr result(voltaris_queryResults(session, query));
    const bool struck = attempt.Struck();
    Lines lines = Reported();
    const LogLine out_of_memory = {kFatal, "voltaris_queryResults: out of memory"};
    const bool not_begun = std::find(lines.begin(), lines.end(), out_of_memory) != lines.end();
    if (!not_begun) {
      ASSERT_NE(result, nullptr);
      ExpectResult(result.get(), query, columns, struck, lines);
      return;
    }
    EXPECT_TRUE(struck);
    EXPECT_EQ(lines, Lines{out_of_memory});
    std::vector<std::int32_t> left = columns;
    if (result != nullptr) {
      EXPECT_EQ(voltaris_getErrorCode(result.get()), VT_ERROR_NO_MEMORY);
      EXPECT_EQ(voltaris_getRowCount(result.get()), 0);
      EXPECT_EQ(voltaris_getNextRow(result.get()), nullptr);
      EXPECT_EQ(voltaris_getAckCount(result.get()) + voltaris_getNakCount(result.get()), 0);
      EXPECT_EQ(result->events.depth, 0);
      left.clear();  // with its result the query loses its columns
      result.reset();
    }
    // Nothing was read, so the replies are still there for whoever asks with memory.
    fault_->Disarm();
    result.reset(voltaris_queryResults(session, query));
    ASSERT_NE(result, nullptr);
    ExpectResult(result.get(), query, left, false, Reported());
  }

  void ExpectResult(ResultSet* result, const Query* query, const std::vector<std::int32_t>& columns,
                    bool struck, const Lines& lines) {
    std::vector<std::uint32_t> kept;
    for (const queue_element* at = result->events.head; at != nullptr; at = at->next) {
      kept.push_back(reinterpret_cast<const Event*>(at)->pak->seq);
    }
    const std::int32_t error = voltaris_getErrorCode(result);
    const ResultContents& complete = Folded(query, columns, AllNumbers());
    const ResultContents& upper = Folded(query, columns, kept);
    const ResultContents contents = ContentsOf(result);
    EXPECT_TRUE(kept == AllNumbers() || struck);
    EXPECT_TRUE(std::includes(AllNumbers().begin(), AllNumbers().end(), kept.begin(), kept.end()));
    // A message is lost whole: it counts for nothing.
    EXPECT_EQ(contents.answers_received, upper.answers_received);
    EXPECT_EQ(contents.answers_pending, upper.answers_pending);
    // An acknowledgement is lost alone, with a line for each, when its array could not grow.
    ExpectAcks(contents.acks, upper.acks, CountOf(lines, "add_ack: out of memory"));
    ExpectAcks(contents.naks, upper.naks, CountOf(lines, "add_nack: out of memory"));
    if (error == 0) {
      EXPECT_EQ(contents.values, upper.values);
      EXPECT_EQ(contents.domain, upper.domain);
    } else {
      // What is missing of the rows is of one message, and the error code tells.
      EXPECT_EQ(error, VT_ERROR_NO_MEMORY);
      EXPECT_TRUE(struck);
      EXPECT_TRUE(IsPartOf(contents.values, upper.values));
      EXPECT_TRUE(std::any_of(kept.begin(), kept.end(), [&](std::uint32_t cut) {
        std::vector<std::uint32_t> others;
        std::copy_if(kept.begin(), kept.end(), std::back_inserter(others),
                     [cut](std::uint32_t number) { return number != cut; });
        return IsPartOf(Folded(query, columns, others).values, contents.values);
      }));
    }
    if (!struck) {
      EXPECT_EQ(error, 0);
      EXPECT_EQ(contents.values, complete.values);
      EXPECT_EQ(contents.acks, complete.acks);
      EXPECT_EQ(contents.naks, complete.naks);
    }
  }

  static std::size_t CountOf(const Lines& lines, const std::string& text) {
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), LogLine{kFatal, text}));
  }

  static void ExpectAcks(const std::vector<AckBytes>& acks, const std::vector<AckBytes>& expected,
                         std::size_t lost) {
    EXPECT_EQ(acks.size() + lost, expected.size());
    EXPECT_TRUE(std::is_sorted(acks.begin(), acks.end()));
    EXPECT_TRUE(IsPartOf(acks, expected));
  }

  // The numbers of the messages that count.
  const std::vector<std::uint32_t>& AllNumbers() {
    if (all_numbers_.empty()) {
      for (const Letter& letter : stream_) {
        if (letter.number < 1000) all_numbers_.push_back(letter.number);
      }
    }
    return all_numbers_;
  }

  // Folded is what a query with these columns makes of these messages when there is memory.
  const ResultContents& Folded(const Query* query, const std::vector<std::int32_t>& columns,
                               const std::vector<std::uint32_t>& numbers) {
    const auto key = std::make_pair(columns, numbers);
    if (const auto known = folded_.find(key); known != folded_.end()) return known->second;
    const AllocationFault::Pause pause;
    const LogCapture log(kSilent);
    const QueryPtr asking(new_query());
    asking->class_ = query->class_;
    asking->action = query->action;
    const ResultPtr result = EmptyResult(asking.get());
    for (const std::int32_t column : columns) {
      auto* entry =
          static_cast<attribute_list_entry*>(std::calloc(1, sizeof(attribute_list_entry)));
      entry->attribute = column;
      EXPECT_EQ(enqueue(&asking->attributes, entry), 1u);
    }
    // More than the arrays begin with.
    result->acks = static_cast<AckEntry*>(std::realloc(result->acks, 4 * 37008));
    result->naks = static_cast<AckEntry*>(std::realloc(result->naks, 4 * 37008));
    for (const Letter& letter : stream_) {
      if (std::find(numbers.begin(), numbers.end(), letter.number) == numbers.end()) continue;
      vtn_processReply(letter.wire.data(), static_cast<std::int32_t>(letter.wire.size()),
                       result.get(), &key_);
    }
    EXPECT_EQ(result->error_code, 0);
    ResultContents contents = ContentsOf(result.get());
    std::sort(contents.acks.begin(), contents.acks.end());
    std::sort(contents.naks.begin(), contents.naks.end());
    return folded_.emplace(key, std::move(contents)).first->second;
  }

  Plan plan_;
  std::vector<Letter> stream_;
  std::vector<std::uint32_t> all_numbers_;
  hmac_context key_ = Keyed(SessionKey());
  std::map<std::pair<std::vector<std::int32_t>, std::vector<std::uint32_t>>, ResultContents>
      folded_;
  AllocationFault* fault_ = nullptr;
  const LogCapture* log_ = nullptr;
  std::vector<const Tlv*> elements_;   // of the query, after the last step
  std::vector<std::int32_t> columns_;  // likewise
  std::vector<Bytes> held_;            // the elements of the query, as they must travel
  QueryContents expected_query_;
  std::uint32_t expected_number_ = 0;
  bool may_be_empty_ = false;
  Node node_;
};

// SweepExchange makes one pass, says how many allocations it has failed, and expects no fewer than
// least, so that none goes missing unseen.
void SweepExchange(Failing failing, Kind kind, std::vector<Letter> stream, std::size_t least) {
  ExchangeSweep sweep(std::move(kind), std::move(stream));
  const std::size_t failed = sweep.Run(failing);
  Note() << failed << " allocations failed in turn"
         << (failing == Failing::kFromThereOn ? ", with all that follow\n" : "\n");
  EXPECT_GE(failed, least);
}

#define TEST_EXCHANGE(name, kind, stream, least)                                            \
  TEST(OutOfMemory, In##name##Once) { SweepExchange(Failing::kOnce, kind, stream, least); } \
  TEST(OutOfMemory, In##name##AndFromThereOn) {                                             \
    SweepExchange(Failing::kFromThereOn, kind, stream, least);                              \
  }

TEST_EXCHANGE(ACollectQueryOfEverythingWithRepliesOfEveryType, CollectOfEverything(),
              With(ShortStream(), RepliesOfEveryType()), 200)
TEST_EXCHANGE(ASetQueryOfEverythingWithRepliesOfEveryType, SetOfEverything(),
              With(ShortStream(), RepliesOfEveryType()), 200)
TEST_EXCHANGE(ASetQueryThatReadsEverything, SetThatReadsEverything(), ShortStream(), 90)
TEST_EXCHANGE(ASumQueryOfEverything, SumOfEverything(), ShortStream(), 60)
TEST_EXCHANGE(AFurtherQueryOfEverything, FurtherOfEverything(), ShortStream(), 90)
TEST_EXCHANGE(AQueryWhoseTimeoutNoLongerFitsItsList, CollectWithoutATimeout(), ShortStream(), 70)
TEST_EXCHANGE(ACollectQueryThatManyAccept, CollectOfUsage(),
              With(ShortStream(), ManyAcknowledgements(-1)), 60)
TEST_EXCHANGE(ASetQueryThatManyRefuse, SetOfLevel(), With(ShortStream(), ManyAcknowledgements(-2)),
              60)

}  // namespace
