#include "tools/ping_report.h"

#include <nlohmann/json.hpp>

#include <array>
#include <charconv>
#include <cmath>

#include "tools/json_text.h"
#include "tools/printable.h"
#include "tools/report.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

double Milliseconds(std::chrono::nanoseconds time) {
  return static_cast<double>(time.count()) / 1e6;
}

// Three digits: clocks and schedulers are not more exact.
std::string FixedDecimal(double number, int digits = 3) {
  std::array<char, 64> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number,
                                          std::chars_format::fixed, digits);
  return error == std::errc() ? std::string(text.data(), end) : "-";
}

void AddPhase(std::string& line, const char* name, const PingTimes::Time& time) {
  if (!time) return;
  line += line.ends_with('(') ? "" : ", ";
  line += name;
  line += ' ' + FixedDecimal(Milliseconds(*time));
}

// --- JSON ---

Json Rounded(double time) { return std::round(time * 1000) / 1000; }

Json TimeOf(const PingTimes::Time& time) {
  return time ? Rounded(Milliseconds(*time)) : Json(nullptr);
}

Json ReasonOf(const Verdict& verdict) {
  return verdict.reason.empty() ? Json(nullptr) : Json(verdict.reason);
}

Json JsonOf(const PingResult& result, std::size_t number) {
  const PingTimes& times = result.times;
  return {{"number", number},
          {"status", StatusWord(result.verdict.status)},
          {"reason", ReasonOf(result.verdict)},
          {"connect_ms", TimeOf(times.connect)},
          {"send_ms", TimeOf(times.send)},
          {"first_byte_ms", TimeOf(times.first_byte)},
          {"verify_ms", TimeOf(times.verify)},
          {"total_ms", TimeOf(times.total())}};
}

Json JsonOf(const PingedNode& node) {
  const PingStatistics& statistics = node.statistics;
  const auto of_answered = [&statistics](double time) {
    return statistics.answered() > 0 ? Rounded(time) : Json(nullptr);
  };
  Json pings = Json::array();
  for (const PingResult& result : node.results) pings.push_back(JsonOf(result, pings.size() + 1));
  const Status status = StatusOf(node);
  return {{"node", NodeName(*node.target)},
          {"status", StatusWord(status)},
          {"exit_code", int{CodeOf(status)}},
          {"name_ms", TimeOf(node.name_time)},
          {"pings", std::move(pings)},
          {"sent", statistics.sent()},
          {"answered", statistics.answered()},
          {"loss_percent", Rounded(statistics.loss())},
          {"min_ms", of_answered(statistics.min())},
          {"avg_ms", of_answered(statistics.avg())},
          {"max_ms", of_answered(statistics.max())},
          {"mdev_ms", of_answered(statistics.mdev())}};
}

}  // namespace

Status StatusOf(const PingedNode& node) {
  if (node.statistics.answered() == 0) return node.last.status;
  return node.statistics.answered() == node.statistics.sent() ? Status::kOk : Status::kPartial;
}

std::string PingLine(const PingedNode& node, std::size_t number, const PingResult& result) {
  std::string line = Printable(NodeName(*node.target)) + ": " + std::to_string(number) + ": ";
  if (const PingTimes::Time total = result.times.total()) {
    line += FixedDecimal(Milliseconds(*total)) + " ms";
  } else {
    line.append(StatusWord(result.verdict.status)).append(": ").append(result.verdict.reason);
  }
  line += " (";
  if (number == 1) AddPhase(line, "name", node.name_time);
  AddPhase(line, "connect", result.times.connect);
  AddPhase(line, "send", result.times.send);
  AddPhase(line, "first byte", result.times.first_byte);
  AddPhase(line, "verify", result.times.verify);
  if (line.ends_with(" (")) return line.substr(0, line.size() - 2) + '\n';
  return line + ")\n";
}

std::string StatisticsText(const std::vector<PingedNode>& nodes) {
  std::string text;
  for (const PingedNode& node : nodes) {
    const PingStatistics& statistics = node.statistics;
    text += Printable(NodeName(*node.target)) + ": " + std::to_string(statistics.sent()) +
            " sent, " + std::to_string(statistics.answered()) + " answered, " +
            FixedDecimal(statistics.loss(), 0) + "% loss";
    if (statistics.answered() > 0) {
      text += "; min/avg/max/mdev " + FixedDecimal(statistics.min()) + '/' +
              FixedDecimal(statistics.avg()) + '/' + FixedDecimal(statistics.max()) + '/' +
              FixedDecimal(statistics.mdev()) + " ms";
    }
    text += '\n';
  }
  return text;
}

std::string PingJson(const std::vector<PingedNode>& nodes, int exit_code, int signal) {
  Json list = Json::array();
  for (const PingedNode& node : nodes) list.push_back(JsonOf(node));
  const Json document = {{"type", "ping"},
                         {"schema", "voltaris-ping-1"},
                         {"exit_code", exit_code},
                         {"signal", signal != 0 ? Json(signal) : Json(nullptr)},
                         {"nodes", std::move(list)}};
  return JsonDocument(document);
}

}  // namespace vt::tools
