#include "node/host/probe_output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <ostream>
#include <vector>

#include "node/power_units.h"

namespace vt::node {
namespace {

using Json = nlohmann::ordered_json;
using Line = std::array<std::string, 5>;

constexpr std::size_t kPowerColumn = 2;

std::vector<Line> Lines(const ProbeReport& report) {
  std::vector<Line> lines = {{"key", "name", "power (W)", "caliber", "category"}};
  for (const ProbedEntity& probed : report.entities) {
    const Reading& reading = probed.reading;
    const Category category = reading.ok() ? reading.category : probed.entity.category;
    lines.push_back({probed.entity.key, probed.entity.name,
                     reading.ok() ? WattsOf(reading.milliwatts) : "-",
                     std::string(Word(probed.entity.caliber)), std::string(Word(category))});
  }
  return lines;
}

std::string Cell(const std::string& text, std::size_t width, bool right_aligned) {
  const std::string blanks(width - text.size(), ' ');
  return right_aligned ? blanks + text : text + blanks;
}

void PrintLines(std::ostream& out, const std::vector<Line>& lines) {
  std::array<std::size_t, std::tuple_size_v<Line>> widths{};
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  for (const Line& line : lines) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += (i == 0 ? "" : "  ") + Cell(line[i], widths[i], i == kPowerColumn);
    }
    text.resize(text.find_last_not_of(' ') + 1);
    out << text << '\n';
  }
}

// PrintAdvice indents each line.
void PrintAdvice(std::ostream& out, const std::string& advice) {
  if (advice.empty()) return;
  std::string text = "    " + advice;
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
    text.insert(at + 1, "    ");
  }
  out << text << '\n';
}

// Troubles of one kind are told together, and what helps against all of them once, behind the last.
void PrintTroubles(std::ostream& out, const ProbeReport& report) {
  std::vector<const ProbedEntity*> troubled;
  for (const ProbedEntity& probed : report.entities) {
    if (!probed.reading.ok()) troubled.push_back(&probed);
  }
  if (troubled.empty()) return;
  out << "\nNot readable:\n";
  for (std::size_t i = 0; i < troubled.size(); ++i) {
    out << "  " << troubled[i]->entity.key << ": " << troubled[i]->reading.detail << '\n';
    const bool is_last = i + 1 == troubled.size() || troubled[i + 1]->advice != troubled[i]->advice;
    if (is_last) PrintAdvice(out, troubled[i]->advice);
  }
}

void PrintMissing(std::ostream& out, const ProbeReport& report) {
  const auto missing = [](const ProbedSource& source) { return source.num_entities == 0; };
  if (std::ranges::none_of(report.sources, missing)) return;
  out << "\nNot found:\n";
  for (const ProbedSource& source : report.sources) {
    if (!missing(source)) continue;
    out << "  " << source.kind << ": " << source.note << '\n';
    PrintAdvice(out, source.advice);
  }
}

Json TextOrNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json EntityDocument(const ProbedEntity& probed) {
  const Reading& reading = probed.reading;
  Json document = {{"source", probed.kind},
                   {"key", probed.entity.key},
                   {"name", probed.entity.name},
                   {"caliber", Word(probed.entity.caliber)},
                   {"category", Word(reading.ok() ? reading.category : probed.entity.category)},
                   {"readable", reading.ok()},
                   {"milliwatts", nullptr},
                   {"usage", nullptr},
                   {"units", nullptr},
                   {"trouble", nullptr},
                   {"detail", TextOrNull(reading.detail)},
                   {"advice", TextOrNull(probed.advice)}};
  if (!reading.ok()) {
    document["trouble"] = Word(reading.trouble);
    return document;
  }
  const PowerInUnits power = FitPower(reading.milliwatts);
  document["milliwatts"] = reading.milliwatts;
  document["usage"] = power.usage;
  document["units"] = power.units;
  return document;
}

}  // namespace

std::string WattsOf(std::int64_t milliwatts) {
  std::string text = std::to_string(milliwatts / 1000);
  const std::int64_t rest = milliwatts % 1000;
  if (rest == 0) return text;
  text += "." + std::to_string(1000 + rest).substr(1);
  text.resize(text.find_last_not_of('0') + 1);
  return text;
}

void PrintProbeTable(std::ostream& out, const ProbeReport& report) {
  if (report.entities.empty()) {
    out << "Nothing tells the power of this host.\n";
  } else {
    PrintLines(out, Lines(report));
  }
  if (report.on_mains)
    out << "\nMains: " << (*report.on_mains ? "plugged in" : "unplugged") << '\n';
  PrintTroubles(out, report);
  PrintMissing(out, report);
}

void PrintProbeJson(std::ostream& out, const ProbeReport& report) {
  Json document = {{"schema", "voltaris-probe-1"},
                   {"on_mains", nullptr},
                   {"sources", Json::array()},
                   {"entities", Json::array()}};
  if (report.on_mains) document["on_mains"] = *report.on_mains;
  for (const ProbedSource& source : report.sources) {
    document["sources"].push_back({{"source", source.kind},
                                   {"entities", source.num_entities},
                                   {"note", TextOrNull(source.note)},
                                   {"advice", TextOrNull(source.advice)}});
  }
  for (const ProbedEntity& probed : report.entities) {
    document["entities"].push_back(EntityDocument(probed));
  }
  // A path that an operator gave need not be UTF-8.
  out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace vt::node
