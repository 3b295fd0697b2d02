// No message counts that the key did not sign: whatever is changed behind the security header is
// detected, and what is dropped leaves no trace in the collection.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/note.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

// Verifier asks the check of the digest itself, without decoding, about an image that changes.
class Verifier {
 public:
  explicit Verifier(Bytes& wire) : Verifier(wire.data(), wire.data() + kMessageHeaderOffset) {
    event_.raw_len = static_cast<std::uint32_t>(wire.size());
  }
  // The digest lies at raw + 12; message is what it signs, which may lie elsewhere.
  Verifier(std::uint8_t* raw, HeapBytes& message) : Verifier(raw, message.data()) {
    event_.raw_len = static_cast<std::uint32_t>(kMessageHeaderOffset + message.size());
  }

  [[nodiscard]] bool Accepts() { return vtn_validateMessageHeader(&event_, &key_) == 1; }

 private:
  Verifier(std::uint8_t* raw, std::uint8_t* message) : key_(Keyed(SessionKey())) {
    event_.raw_valid = 1;
    event_.raw = raw;
    event_.raw_hdr = message;
  }

  Event event_ = {};
  hmac_context key_;
};

void Append(Bytes& bytes, const void* data, std::size_t size) {
  const auto* const first = static_cast<const std::uint8_t*>(data);
  bytes.insert(bytes.end(), first, first + size);
}

template <class Record>
void Append(Bytes& bytes, const Record& record) {
  Append(bytes, &record, sizeof record);
}

// Holdings is what a ResultSet owns, record by record: acknowledgements, devices, rows, values and
// queued messages.
Bytes Holdings(const ResultSet& result) {
  Bytes all;
  Append(all, result.acks, static_cast<std::size_t>(result.ack_count) * sizeof(AckEntry));
  Append(all, result.naks, static_cast<std::size_t>(result.nak_count) * sizeof(AckEntry));
  for (const queue_element* d = result.rows.head; d != nullptr; d = d->next) {
    const auto& device = *reinterpret_cast<const device_node*>(d);
    Append(all, device);
    Append(all, device.key->device.id);
    for (const queue_element* e = device.entities.head; e != nullptr; e = e->next) {
      const auto& entity = *reinterpret_cast<const entity_node*>(e);
      Append(all, entity);
      for (const queue_element* a = entity.attributes.head; a != nullptr; a = a->next) {
        Append(all, *reinterpret_cast<const attribute_node*>(a));
      }
    }
  }
  for (const queue_element* e = result.events.head; e != nullptr; e = e->next) {
    const auto& event = *reinterpret_cast<const Event*>(e);
    Append(all, event);
    Append(all, *event.pak);
  }
  return all;
}

// A receiver that has taken a good message, and what a dropped one has to leave as it is.
class Guarded {
 public:
  Guarded() {
    receiver_.Process(SignedReply(RichReply(-1)));
    EXPECT_EQ(receiver_.result()->ack_count, 2);
    EXPECT_GT(receiver_.result()->row_count, 0);
    EXPECT_FALSE(receiver_.Contents().empty());
    Remember();
  }

  // Drops tells whether the message changed nothing in the record: no count, no end and no depth of
  // a queue.
  [[nodiscard]] bool Drops(const Bytes& wire) {
    receiver_.Process(wire);
    ++dropped_;
    return receiver_.Record() == record_;
  }

  // ExpectWhole checks what a record does not show, and that good messages still count.
  void ExpectWhole(const Bytes& good) {
    EXPECT_EQ(Holdings(*receiver_.result()), holdings_);
    EXPECT_EQ(receiver_.Contents(), contents_);
    const std::int32_t depth = receiver_.result()->events.depth;
    const std::int32_t answers = receiver_.result()->answers_received;
    receiver_.Process(good);
    EXPECT_EQ(receiver_.result()->events.depth, depth + 1);
    EXPECT_EQ(receiver_.result()->answers_received, answers + 1);
    Remember();
  }

  std::size_t dropped() const { return dropped_; }

 private:
  void Remember() {
    record_ = receiver_.Record();
    holdings_ = Holdings(*receiver_.result());
    contents_ = receiver_.Contents();
  }

  Receiver receiver_;
  Bytes record_;
  Bytes holdings_;
  std::vector<std::string> contents_;
  std::size_t dropped_ = 0;
};

void NoteDropped(const Guarded& guarded, const char* what) {
  Note() << guarded.dropped() << " " << what << ", none accepted\n";
}

TEST(Authentication, EverySingleBitFlipOfEveryMessageIsDetected) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    Bytes wire = message.wire;
    Verifier verifier(wire);
    ASSERT_TRUE(verifier.Accepts());
    for (std::size_t bit = kDigestOffset * 8; bit < wire.size() * 8; ++bit) {
      const auto mask = static_cast<std::uint8_t>(1u << bit % 8);
      wire[bit / 8] ^= mask;
      ASSERT_FALSE(verifier.Accepts()) << "bit " << bit;
      ASSERT_TRUE(guarded.Drops(wire)) << "bit " << bit;
      wire[bit / 8] ^= mask;
    }
    guarded.ExpectWhole(wire);
  }
  NoteDropped(guarded, "flipped bits");
}

// The long sweeps are cut into parts, each well below the time-out of a test.
class AuthenticationPart : public ::testing::TestWithParam<std::size_t> {
 public:
  static constexpr std::size_t kParts = 4;
};

INSTANTIATE_TEST_SUITE_P(Part, AuthenticationPart,
                         ::testing::Range(std::size_t{0}, AuthenticationPart::kParts));

TEST_P(AuthenticationPart, OfTheByteValuesAtEveryOffsetOfEveryMessageIsDetected) {
  const LogCapture quiet(kSilent);
  const std::size_t step = Thinned(7);
  Guarded guarded;
  std::size_t number = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    Bytes wire = message.wire;
    Verifier verifier(wire);
    for (std::size_t at = kDigestOffset + GetParam(); at < wire.size(); at += kParts) {
      const std::uint8_t right = wire[at];
      for (unsigned value = 0; value < 256; ++value) {
        if (value == right || ++number % step != 0) continue;
        wire[at] = static_cast<std::uint8_t>(value);
        ASSERT_FALSE(verifier.Accepts()) << "offset " << at << ", value " << value;
        ASSERT_TRUE(guarded.Drops(wire)) << "offset " << at << ", value " << value;
      }
      wire[at] = right;
    }
    guarded.ExpectWhole(wire);
  }
  NoteDropped(guarded, "byte values");
}

// One of the two bits may lie in the security header: whatever else a rule lets pass there, the
// other bit is detected.
TEST_P(AuthenticationPart, OfTheTwoBitFlipsOfAMessageOf200BytesIsDetected) {
  const LogCapture quiet(kSilent);
  const std::size_t step = Thinned(7);
  Bytes wire = ReplyOfSize(200);
  ASSERT_EQ(wire.size(), 200u);
  const auto flip = [&wire](std::size_t bit) {
    wire[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
  };
  Guarded guarded;
  Verifier verifier(wire);
  std::size_t number = 0;
  const std::size_t end = wire.size() * 8;
  for (std::size_t first = GetParam(); first < end; first += kParts) {
    flip(first);
    for (std::size_t second = std::max(first + 1, kDigestOffset * 8); second < end; ++second) {
      if (++number % step != 0) continue;
      flip(second);
      ASSERT_FALSE(verifier.Accepts()) << "bits " << first << " and " << second;
      ASSERT_TRUE(guarded.Drops(wire)) << "bits " << first << " and " << second;
      flip(second);
    }
    flip(first);
  }
  guarded.ExpectWhole(wire);
  NoteDropped(guarded, "pairs of flipped bits");
}

TEST(Authentication, TheUnsignedFirst12BytesAreTakenByTheirOwnRules) {
  const hmac_context key = Keyed(SessionKey());
  std::size_t tried = 0;
  for (const PduImage& image :
       {ReplyWith({Aggregate(13, "lamp", {Entry(1, {0, 11})})}), RichReply(), ReplyWith({})}) {
    const Bytes good = SignedReply(image);
    for (std::size_t at = 0; at < kDigestOffset; ++at) {
      for (unsigned value = 0; value < 256; ++value) {
        SCOPED_TRACE(std::to_string(good.size()) + " bytes, offset " + std::to_string(at) +
                     ", value " + std::to_string(value));
        ++tried;
        Bytes wire = good;
        wire[at] = static_cast<std::uint8_t>(value);
        // Only these fields have rules; a tag is reported and accepted.
        bool accepted = true;
        if (at == 1) accepted = (value & 0x0F) == 2;
        if (at == 9) accepted = (value >> 4) == 1 && (value & 0x0F) <= 4;
        if (at == 10) accepted = value == 0;
        if (at == 11) accepted = value == 20;
        // What is refused is refused before a digest is computed: there is no line about one. The
        // digest of a message without elements is not looked at by the decoder, nor its tag.
        Lines decoding;
        if (at >= 4 && at <= 7 && value != 0 && !image.elements.empty()) {
          const auto tag = static_cast<std::int32_t>(value << 8 * (7 - at));
          decoding = {{kWarn, "vtn_validateMessageHeader: Unexpected HMAC tag value " +
                                  std::to_string(tag)}};
        }
        Lines collecting = decoding;
        if (!accepted) {
          collecting = {{kDebug, "vtn_processReply: Error while unpacking, error_code=5"}};
        }

        LogCapture log(kDebug);
        const EventPtr event(
            cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(wire.size()), wire.data()));
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(cv_unpack_event(event.get(), &key), accepted ? 0 : 5);
        EXPECT_EQ(event->state, accepted ? 0x101u : 0x107u);
        EXPECT_EQ(event->pak_valid, accepted ? 1u : 0u);
        EXPECT_EQ(log.Take(), decoding);

        Receiver receiver;
        const Bytes empty = receiver.Record();
        log.Clear();
        receiver.Process(wire);
        EXPECT_EQ(log.lines(), collecting);
        if (accepted) {
          EXPECT_EQ(receiver.result()->answers_received, 1);
          EXPECT_EQ(receiver.result()->row_count > 0, !image.elements.empty());
        } else {
          EXPECT_EQ(receiver.Record(), empty);
        }
        if (HasFailure()) return;
      }
    }
  }
  Note() << tried << " values of the security header taken by their rules\n";
}

// Forgeries are what can be made of a signed message without its key.
std::vector<Bytes> Forgeries(const Bytes& signed_message) {
  std::vector<Bytes> all;
  Bytes unsigned_message = signed_message;
  std::fill(unsigned_message.begin() + kDigestOffset,
            unsigned_message.begin() + kMessageHeaderOffset, std::uint8_t{0});
  all.push_back(unsigned_message);
  std::fill(unsigned_message.begin() + kDigestOffset,
            unsigned_message.begin() + kMessageHeaderOffset, std::uint8_t{0xFF});
  all.push_back(unsigned_message);
  for (const Bytes& key :
       {Bytes(), Bytes(20, 0), Head(SessionKey(), 19), SessionKey() + Bytes{1}, Bytes(64, 0xFF)}) {
    all.push_back(Sign(signed_message, key));
  }
  // A digest of the elements alone, and one of everything in which it is itself still zero.
  const auto with_digest = [&](const Bytes& digest) {
    Bytes wire = signed_message;
    std::copy(digest.begin(), digest.end(), wire.begin() + kDigestOffset);
    return wire;
  };
  all.push_back(with_digest(HmacSha1(
      SessionKey(), Bytes(signed_message.begin() + kTlvAreaOffset, signed_message.end()))));
  all.push_back(with_digest(HmacSha1(SessionKey(), unsigned_message)));
  return all;
}

// The two headers alone, which decode: there is no digest that could be wrong.
Bytes HeadersAlone() {
  const Bytes wire = SignedReply(ReplyWith({}));
  return Head(wire, kDigestOffset) + Bytes(wire.begin() + kMessageHeaderOffset, wire.end());
}

TEST(Authentication, ForgedMessagesLeaveNoTraceAndTheNextGoodOneCounts) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    for (const Bytes& forged : Forgeries(message.wire)) EXPECT_TRUE(guarded.Drops(forged));
    EXPECT_TRUE(guarded.Drops(HeadersAlone()));
    Bytes shorter = message.wire;
    shorter.pop_back();
    EXPECT_TRUE(guarded.Drops(shorter));
    EXPECT_TRUE(guarded.Drops(message.wire + Bytes{0}));
    guarded.ExpectWhole(message.wire);
  }
  NoteDropped(guarded, "forgeries");
}

TEST(Authentication, OfARunningCollectionCountsTheSignedMessagesAlone) {
  const LogCapture quiet(kSilent);
  const Bytes good = UsageReply("lamp", 1, 11);
  const Bytes acknowledgement = SignedReply(RichReply(-1));
  std::size_t forged = 0;
  Bytes stream;
  constexpr int kRounds = 5;
  for (int round = 0; round < kRounds; ++round) {
    for (const Bytes& original : {UsageReply("fan", 2, 22), acknowledgement}) {
      for (const Bytes& forgery : Forgeries(original)) {
        stream = std::move(stream) + forgery;
        ++forged;
      }
    }
    stream = std::move(stream) + good;
  }
  stream = std::move(stream) + acknowledgement;

  ScriptedPeer peer([&](PeerConnection& c) {
    c.ReadPdu();
    c.Send(stream);
  });
  Asking asking(peer.port());
  ASSERT_EQ(asking.Execute(), 0);
  const ResultSet* const result = asking.Collect();
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(peer.Join());
  Receiver expected;
  for (int round = 0; round < kRounds; ++round) expected.Process(good);
  expected.Process(acknowledgement);
  EXPECT_EQ(result->error_code, 0);
  EXPECT_EQ(result->events.depth, kRounds + 1);
  EXPECT_EQ(result->answers_received, kRounds + 1);
  EXPECT_EQ(result->answers_pending, expected.result()->answers_pending);
  EXPECT_EQ(result->ack_count, 2);
  EXPECT_EQ(result->nak_count, 0);
  EXPECT_EQ(result->rows.depth, expected.result()->rows.depth);
  Note() << forged << " forgeries between " << kRounds + 1 << " signed messages\n";
}

TEST(Authentication, TheDigestOfOneMessageDoesNotServeAnother) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  const std::vector<Message> corpus = Corpus();
  for (const Message& message : corpus) {
    Bytes wire = message.wire;
    for (const Message& other : corpus) {
      if (other.wire == message.wire) continue;
      std::copy(other.wire.begin() + kDigestOffset, other.wire.begin() + kMessageHeaderOffset,
                wire.begin() + kDigestOffset);
      ASSERT_TRUE(guarded.Drops(wire)) << message.name << " with the digest of " << other.name;
    }
  }
  guarded.ExpectWhole(corpus[0].wire);
  NoteDropped(guarded, "borrowed digests");
}

// The length of the digest is no choice of the sender: neither a digest of no bytes nor one whose
// first bytes are right serves, nor a right one that is said to be longer.
TEST(Authentication, TheSenderDoesNotChooseTheLengthOfTheDigest) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  for (unsigned length = 0; length <= 0xFFFF; length += length < 400 ? 1 : 61) {
    if (length == 20) continue;
    PduImage image = RichReply();
    image.digest_len = static_cast<std::uint16_t>(length);
    const std::size_t field = (length + 3u) / 4 * 4;
    const Bytes good = SignedReply(image);
    Bytes digest(good.begin() + kDigestOffset, good.begin() + kMessageHeaderOffset);
    digest.resize(field);
    const Bytes rest(good.begin() + kMessageHeaderOffset, good.end());
    ASSERT_TRUE(guarded.Drops(Head(good, kDigestOffset) + digest + rest)) << length;
    ASSERT_TRUE(guarded.Drops(good)) << length;
  }
  guarded.ExpectWhole(SignedReply(RichReply()));
  NoteDropped(guarded, "digests of another length");
}

// BehindPage is a copy of bytes whose first byte is the first behind an inaccessible page.
class BehindPage {
 public:
  explicit BehindPage(const Bytes& bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    size_ = 2 * page;
    mapping_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED || mprotect(mapping_, page, PROT_NONE) != 0) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(mapping_) + page;
    std::copy(bytes.begin(), bytes.end(), data_);
  }
  ~BehindPage() { munmap(mapping_, size_); }
  BehindPage(const BehindPage&) = delete;
  BehindPage& operator=(const BehindPage&) = delete;

  std::uint8_t* data() { return data_; }

 private:
  void* mapping_;
  std::size_t size_;
  std::uint8_t* data_;
};

// ExpectAllOf20Decide expects the digest to be accepted, and refused with any one byte changed.
void ExpectAllOf20Decide(std::uint8_t* digest, HeapBytes& message) {
  Verifier verifier(digest - kDigestOffset, message);
  EXPECT_TRUE(verifier.Accepts());
  for (std::size_t i = 0; i < kDigestSize; ++i) {
    for (unsigned change = 1; change < 256; ++change) {
      digest[i] ^= static_cast<std::uint8_t>(change);
      EXPECT_FALSE(verifier.Accepts()) << "byte " << i << ", change " << change;
      digest[i] ^= static_cast<std::uint8_t>(change);
    }
  }
}

TEST(Authentication, TheComparisonReadsThe20BytesOfTheDigestAndNoOthers) {
  const LogCapture quiet(kSilent);
  const Bytes good = UsageReply("lamp", 1, 11);
  const Bytes digest(good.begin() + kDigestOffset, good.begin() + kMessageHeaderOffset);
  HeapBytes message(Bytes(good.begin() + kMessageHeaderOffset, good.end()));
  {
    SCOPED_TRACE("nothing can be read behind the digest");
    GuardedBytes before(digest);
    ExpectAllOf20Decide(before.data(), message);
  }
  {
    SCOPED_TRACE("nothing can be read before the digest");
    BehindPage behind(digest);
    ExpectAllOf20Decide(behind.data(), message);
  }
  Note() << 2 * kDigestSize * 255 << " wrong digests beside inaccessible pages, none accepted\n";
}

// Path is the addresses of all instructions that a call executed. The processor stops after each
// one while its trap flag is set.
class Path {
 public:
  static std::vector<std::uintptr_t> Of(Verifier& verifier, bool* accepts) {
    steps_.clear();
    steps_.reserve(kMost);
    struct sigaction ours = {};
    struct sigaction before;
    ours.sa_sigaction = &Path::Step;
    ours.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &ours, &before);
    SetTrapFlag();
    *accepts = verifier.Accepts();
    ClearTrapFlag();
    sigaction(SIGTRAP, &before, nullptr);
    return steps_;
  }

 private:
  static constexpr std::size_t kMost = 1 << 20;

  static void Step(int, siginfo_t*, void* context) {
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
#if defined(__x86_64__)
    const auto at = static_cast<std::uintptr_t>(registers[REG_RIP]);
#else
    const auto at = static_cast<std::uintptr_t>(registers[REG_EIP]);
#endif
    if (steps_.size() < kMost) steps_.push_back(at);
  }

#if defined(__x86_64__)
  // The flags go over the stack, beyond the 128 bytes below its pointer that the compiler may use.
  static void SetTrapFlag() {
    asm volatile(
        "lea -128(%%rsp), %%rsp; pushfq; orq $0x100, (%%rsp); popfq; lea 128(%%rsp), %%rsp" ::
            : "memory", "cc");
  }
  static void ClearTrapFlag() {
    asm volatile(
        "lea -128(%%rsp), %%rsp; pushfq; andq $~0x100, (%%rsp); popfq; lea 128(%%rsp), %%rsp" ::
            : "memory", "cc");
  }
#else
  static void SetTrapFlag() { asm volatile("pushf; orl $0x100, (%%esp); popf" ::: "memory", "cc"); }
  static void ClearTrapFlag() {
    asm volatile("pushf; andl $~0x100, (%%esp); popf" ::: "memory", "cc");
  }
#endif

  static inline std::vector<std::uintptr_t> steps_;
};

// A time that depends on where two digests differ would let a peer find the right one byte by byte.
// Equal instructions in equal order leave no such difference, on any machine and under any load.
TEST(Authentication, TheComparisonTakesTheSamePathWhereverTheDigestsDiffer) {
  if (kSanitized) GTEST_SKIP() << "the run time of the sanitizers takes paths of its own";
  const LogCapture quiet(kSilent);
  const Bytes good = UsageReply("lamp", 1, 11);
  // One byte of the digest wrong, and all from there on.
  std::vector<Bytes> all_wrong;
  for (std::size_t first = kDigestOffset; first < kMessageHeaderOffset; ++first) {
    for (const std::uint8_t change : Hex("01 ff")) {
      Bytes wrong = good;
      wrong[first] ^= change;
      all_wrong.push_back(wrong);
      for (std::size_t i = first + 1; i < kMessageHeaderOffset; ++i) wrong[i] ^= change;
      all_wrong.push_back(wrong);
    }
  }
  // The first is asked twice, for what is done once only; all in one place of the program, for that
  // is on the path.
  Bytes wire = good;
  Verifier verifier(wire);
  std::vector<std::uintptr_t> first_path;
  for (std::size_t i = 0; i <= all_wrong.size(); ++i) {
    const Bytes& wrong = all_wrong[i == 0 ? 0 : i - 1];
    std::copy(wrong.begin(), wrong.end(), wire.begin());
    bool accepts = true;
    const std::vector<std::uintptr_t> path = Path::Of(verifier, &accepts);
    ASSERT_FALSE(accepts);
    if (path.empty()) GTEST_SKIP() << "there is no trap flag on this machine (an emulation?)";
    if (i == 0) continue;
    if (i == 1) first_path = path;
    ASSERT_TRUE(path == first_path) << ::testing::PrintToString(Head(wrong, kMessageHeaderOffset));
  }
  // The comparison alone takes several for each byte.
  EXPECT_GT(first_path.size(), 100u);
  std::copy(good.begin(), good.end(), wire.begin());
  EXPECT_TRUE(verifier.Accepts());
  Note() << all_wrong.size() << " wrong digests, the same " << first_path.size()
         << " instructions for each\n";
}

}  // namespace
