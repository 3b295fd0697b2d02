// The nodes of the options asked together, once or in several rounds, under one deadline and with
// progress on the terminal.
#ifndef VT_TOOLS_INQUIRY_H_
#define VT_TOOLS_INQUIRY_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "vtapi.hpp"

#include "tools/answer.h"
#include "tools/gathering.h"
#include "tools/options.h"
#include "tools/resolve.h"

namespace vt::tools {

// LongestSilence is from one message of a node to the next: the time of devices, and some more, for
// the answer still has to travel.
std::chrono::milliseconds LongestSilence(const Options& options);

// Inquiry borrows the options. Its time runs from the moment it is made.
class Inquiry {
 public:
  using Describe = std::function<voltaris::QueryDescription(const Target&)>;
  // What came of a node; the results go when the call returns, and are null for a node that was not
  // asked.
  using Ended =
      std::function<void(std::size_t node, NodeAnswer answer, const voltaris::Results* results)>;

  // It finds the addresses of all targets, for as long as a connection may take, and opens a
  // session with each that has one. It throws Failure where a session cannot be.
  explicit Inquiry(const Options& options);

  // AllNodes are the places of all targets.
  std::vector<std::size_t> AllNodes() const;

  // Ask asks the nodes with those places and tells of each as it ends; one without an address has
  // ended before it began. All queries are looked at before anything is sent. It throws Failure.
  void Ask(const std::vector<std::size_t>& nodes, const Describe& describe, unsigned retries,
           const Ended& ended);

  // ShowProgressBy has progress told to a callback instead of the terminal. What that throws passes
  // through Ask.
  void ShowProgressBy(std::function<void(const GatherProgress&)> show) { show_ = std::move(show); }

  // Extend moves the deadline away, by the time that somebody was waited for.
  void Extend(Clock::duration time) { deadline_ += time; }

 private:
  struct Tally {
    std::size_t failed = 0;
    std::size_t rows = 0;
  };

  void CheckQueries(const std::vector<std::size_t>& nodes, const Describe& describe) const;
  NodeAnswer UnknownNode(std::size_t node) const;
  NodeAnswer AnswerOf(std::size_t node, unsigned attempts, const voltaris::Results* results) const;
  void ShowTally(const GatherProgress& progress, const Tally& tally) const;

  const Options& options_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point deadline_;
  std::vector<Resolution> addresses_;
  std::vector<std::optional<voltaris::Session>> sessions_;  // none where there is no address
  std::function<void(const GatherProgress&)> show_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_INQUIRY_H_
