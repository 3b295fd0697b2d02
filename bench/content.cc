#include "bench/content.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "bench/measure.h"

namespace vt::bench {

namespace {

constexpr std::uint64_t kSampleSeed = 20240625;
constexpr std::uint64_t kTableSeed = 20240626;

using ResultPtr = std::unique_ptr<ResultSet, ReleaseWith<&Release>>;

Value ReadValue(ResultRow* row, const Column& column) {
  std::uint32_t length = 0;
  const void* const at = voltaris_getAttributeFromRowByType(row, column.attribute, &length);
  Require(at != nullptr && length >= column.size, "a value is missing");
  if (column.size == 0) return {static_cast<const char*>(at), 0};
  Value value{"", 0};
  std::memcpy(&value.number, at, column.size);  // little-endian
  return value;
}

}  // namespace

Content ReadContent(const Bytes& reply, const Shape& shape) {
  const QueryPtr query = CollectQuery(shape);
  const ResultPtr result(NewResult(query.get()));
  vtn_processReply(reply.data(), static_cast<std::int32_t>(reply.size()), result.get(),
                   &KeyContext());
  Content content;
  while (ResultRow* const row = voltaris_getNextRow(result.get())) {
    const device_header& header = row->device->device;
    const auto* const identity = reinterpret_cast<const char*>(header.id.bytes);
    const std::string id(identity, sizeof header.id.bytes);
    if (content.devices.empty() || content.devices.back().identity != id) {
      content.devices.push_back({id, {static_cast<const char*>(header.data), header.data_len}, {}});
    }
    ContentRow& made = content.devices.back().rows.emplace_back();
    made.entity = row->entity_index;
    for (std::size_t i = 0; i < kColumns; ++i) made.values[i] = ReadValue(row, shape[i]);
    content.domain = row->domain;
  }
  Require(!content.devices.empty(), "a reply says nothing");
  return content;
}

const std::vector<Sample>& Samples() {
  static const std::vector<Sample> all = [] {
    Messages messages(kSampleSeed);
    std::vector<Sample> samples(kSamples);
    for (Sample& sample : samples) {
      sample.shape = messages.NewShape();
      for (std::size_t i = 0; i < kRepliesOfSample; ++i) {
        sample.replies.push_back(messages.FullReply(sample.shape));
        sample.contents.push_back(ReadContent(sample.replies.back(), sample.shape));
      }
    }
    return samples;
  }();
  return all;
}

Shape TableShape() { return Messages(kTableSeed).NewShape(); }

std::vector<Bytes> TableInFullReplies(const Shape& shape) {
  Messages messages(kTableSeed);
  std::vector<Bytes> replies;
  std::size_t rows = 0;
  for (; rows + kRowsOfFull <= kTableRows; rows += kRowsOfFull) {
    replies.push_back(messages.FullReply(shape));
  }
  if (rows < kTableRows) {
    replies.push_back(messages.Reply(shape, messages.Devices(1), kTableRows - rows));
  }
  return replies;
}

std::vector<Bytes> TableInSingleRows(const Shape& shape) {
  Messages messages(kTableSeed);
  std::vector<Bytes> replies;
  for (const corvane_id& device : messages.Devices(kTableRows)) {
    replies.push_back(messages.Reply(shape, {&device, 1}, 1));
  }
  return replies;
}

}  // namespace vt::bench
