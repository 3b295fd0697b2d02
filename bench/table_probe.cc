// Both ends of the transfer of a table of 10000 rows as programs of their own, so that it can be
// held against another program:
//   table_probe serve            prints its port and serves for ever
//   table_probe ask PORT WHICH   asks for a table and prints its values, one a line; 1: in full
//                                replies, 2: one row a reply, 3: a table of one row
#include <poll.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "bench/content.h"
#include "bench/measure.h"
#include "bench/peer.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

// The priority of a query tells which table it wants.
enum Table : std::uint32_t { kInFullReplies = 1, kInSingleRows = 2, kOneRow = 3 };

Bytes Joined(const std::vector<Bytes>& replies) {
  Bytes all;
  for (const Bytes& reply : replies) all.insert(all.end(), reply.begin(), reply.end());
  return all;
}

[[noreturn]] void ServeTables() {
  const Shape shape = TableShape();
  const std::vector<Bytes> single_rows = TableInSingleRows(shape);
  const Bytes full = Joined(TableInFullReplies(shape));
  const Bytes single = Joined(single_rows);
  std::uint16_t port = 0;
  const int listener = Listen(port);
  std::printf("%u\n", static_cast<unsigned>(port));
  std::fflush(stdout);
  Serve(listener, [&](std::uint32_t table) -> std::span<const std::uint8_t> {
    if (table == kInFullReplies) return full;
    if (table == kInSingleRows) return single;
    return single_rows.front();
  });
}

// Printer writes lines to the standard output, many at once.
using CollectionPtr = std::unique_ptr<ReplyCollection, ReleaseWith<&voltaris_releaseCollection>>;

class Printer {
 public:
  ~Printer() { Flush(); }

  void Print(std::uint32_t entity, const void* value, const Column& column) {
    if (lines_.size() - used_ < kLongestLine) Flush();
    Put(entity);
    lines_[used_++] = ' ';
    if (column.size == 0) {
      const std::string_view text(static_cast<const char*>(value));
      used_ += text.copy(&lines_[used_], kLongestLine / 2);
    } else {
      std::int32_t number = 0;
      std::memcpy(&number, value, column.size);  // little-endian
      Put(number);
    }
    lines_[used_++] = '\n';
  }

 private:
  static constexpr std::size_t kLongestLine = 128;

  template <class Integer>
  void Put(Integer number) {
    char* const begin = &lines_[used_];
    used_ += static_cast<std::size_t>(std::to_chars(begin, begin + kLongestLine / 4, number).ptr -
                                      begin);
  }

  void Flush() {
    Require(std::fwrite(lines_.data(), 1, used_, stdout) == used_, "no output");
    used_ = 0;
  }

  std::array<char, 65536> lines_;
  std::size_t used_ = 0;
};

void Ask(std::uint32_t port, std::uint32_t table) {
  const Shape shape = TableShape();
  const SessionPtr session(voltaris_createSession("127.0.0.1", port, kIdentity, Key().data(),
                                                  static_cast<std::int32_t>(Key().size())));
  Require(session != nullptr, "no session");
  const QueryPtr query = CollectQuery(shape, table);
  const CollectionPtr collection(voltaris_startCollection(session.get(), query.get(), nullptr));
  Require(collection != nullptr, "a query was not sent");
  ReplyCollection* const c = collection.get();
  while (voltaris_stepCollection(c) == VT_COLLECTION_PENDING) {
    pollfd watched{voltaris_getCollectionDescriptor(c), voltaris_getCollectionEvents(c), 0};
    (void)poll(&watched, 1, voltaris_getCollectionTimeout(c));
  }
  ResultSet* const result = voltaris_takeCollectionResult(c);
  Require(voltaris_getErrorCode(result) == 0, "a query failed");
  Printer printer;
  std::size_t rows = 0;
  ResultCursor cursor;
  voltaris_startCursor(&cursor, result);
  for (; voltaris_advanceCursor(&cursor) != 0; ++rows) {
    for (const Column& column : shape) {
      std::uint32_t length = 0;
      const void* const value = voltaris_readValue(&cursor, column.attribute, 0, &length);
      Require(value != nullptr, "a value is missing");
      printer.Print(cursor.identity.entity_index, value, column);
    }
  }
  Require(rows == (table == kOneRow ? 1 : kTableRows), "rows are missing");
  voltaris_releaseResult(result);
}

std::uint32_t Number(const char* text) {
  return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  if (mode == "serve" && argc == 2) ServeTables();
  if (mode == "ask" && argc == 4) {
    Ask(Number(argv[2]), Number(argv[3]));
    return 0;
  }
  std::fprintf(stderr, "usage: table_probe serve | ask PORT WHICH\n");
  return 2;
}
