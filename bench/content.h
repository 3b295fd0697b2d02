// What a reply says, apart from how it is written: the same devices, entities and values in the
// form from which the messages of other protocols are made.
#ifndef VT_BENCH_CONTENT_H_
#define VT_BENCH_CONTENT_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/messages.h"

namespace vt::bench {

// Value is a text, or a number where its column has a size.
struct Value {
  std::string text;
  std::int32_t number;
};

struct ContentRow {
  std::uint32_t entity;
  std::array<Value, kColumns> values;  // in the order of the shape
};

struct ContentDevice {
  std::string identity;
  std::string address;
  std::vector<ContentRow> rows;
};

struct Content {
  std::string domain;
  std::vector<ContentDevice> devices;
};

// ReadContent decodes a reply with the columns of shape.
Content ReadContent(const Bytes& reply, const Shape& shape);

// Sample is a shape with full replies of it, and what they say.
struct Sample {
  Shape shape;
  std::vector<Bytes> replies;
  std::vector<Content> contents;
};

// The samples that other protocols are compared on: 160 replies of eight shapes.
const std::vector<Sample>& Samples();
inline constexpr std::size_t kSamples = 8;
inline constexpr std::size_t kRepliesOfSample = 20;
inline constexpr std::size_t kSampledValues = kSamples * kRepliesOfSample * kRowsOfFull * kColumns;

// A table of 10000 rows in full replies, the last of which has what is left.
inline constexpr std::size_t kTableRows = 10000;
std::vector<Bytes> TableInFullReplies(const Shape& shape);
// As many rows in replies of one row each, of as many devices.
std::vector<Bytes> TableInSingleRows(const Shape& shape);
Shape TableShape();

}  // namespace vt::bench

#endif  // VT_BENCH_CONTENT_H_
