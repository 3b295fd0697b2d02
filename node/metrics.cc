#include "node/metrics.h"

#include <array>
#include <charconv>
#include <chrono>

namespace vt::node {
namespace {

constexpr std::string_view kPrefix = "voltaris_node_";

std::string NumberText(double value) {
  std::array<char, 32> digits{};
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  return {digits.data(), result.ptr};
}

double Seconds(std::chrono::nanoseconds time) {
  return std::chrono::duration<double>(time).count();
}

void AppendLabelValue(std::string_view value, std::string& out) {
  for (const char letter : value) {
    if (letter == '\\' || letter == '"') out += '\\';
    if (letter == '\n') {
      out += "\\n";
    } else {
      out += letter;
    }
  }
}

template <class T>
double Count(T value) {
  return static_cast<double>(value);
}

void WriteConnections(const TrafficCounts& traffic, MetricsText& out) {
  out.Family("connections_accepted_total", "counter", "Connections of clients.");
  out.Sample(Count(traffic.accepted));
  out.Family("connections_open", "gauge", "Connections of clients that are open.");
  out.Sample(Count(traffic.open));
  out.Family("accept_failures_total", "counter", "Connections that could not be accepted.");
  out.Sample(Count(traffic.accept_failures));
}

void WriteQueries(const TrafficCounts& traffic, MetricsText& out) {
  out.Family("queries_total", "counter", "Queries that were answered, by kind.");
  for (std::size_t i = 0; i < traffic.queries.size(); ++i) {
    out.Sample(Count(traffic.queries[i]), {{"kind", kQueryKindNames[i]}});
  }
  out.Family("rejected_total", "counter",
             "Messages and connections that were dropped or failed, by reason.");
  for (std::size_t i = 0; i < traffic.rejections.size(); ++i) {
    out.Sample(Count(traffic.rejections[i]), {{"reason", kRejectionNames[i]}});
  }
  out.Family("messages_sent_total", "counter", "Messages of answers that clients took whole.");
  out.Sample(Count(traffic.messages_sent));
  out.Family("sent_bytes_total", "counter", "Bytes of these messages.");
  out.Sample(Count(traffic.bytes_sent));
  out.Family("unsent_bytes", "gauge", "Bytes of answers that are on their way to clients.");
  out.Sample(Count(traffic.unsent));
}

void WriteAnswerTimes(const TrafficCounts& traffic, MetricsText& out) {
  out.Family("answer_seconds", "histogram",
             "Time that an answer takes, without waiting for its turn and sending.");
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < traffic.answer_times.size(); ++i) {
    count += traffic.answer_times[i];
    const std::string bound =
        i < kAnswerTimeBounds.size() ? NumberText(kAnswerTimeBounds[i]) : "+Inf";
    out.Sample(Count(count), {{"le", bound}}, "_bucket");
  }
  out.Sample(Seconds(traffic.answer_time_sum), {}, "_sum");
  out.Sample(Count(count), {}, "_count");
}

void WriteFleet(const FleetTotals& fleet, MetricsText& out) {
  out.Family("devices", "gauge", "Devices of the fleet.");
  out.Sample(Count(fleet.devices));
  out.Family("entities", "gauge", "Entities of the devices.");
  out.Sample(Count(fleet.entities));
  out.Family("power_watts", "gauge",
             "Power of the entities, by category. Only that of consumers is a sum that means "
             "something in any fleet.");
  for (std::size_t i = 0; i < fleet.milliwatts.size(); ++i) {
    out.Sample(Count(fleet.milliwatts[i]) / 1e3, {{"category", kPowerCategoryNames[i]}});
  }
}

}  // namespace

void MetricsText::Family(std::string_view name, std::string_view type, std::string_view help) {
  family_ = std::string(kPrefix) + std::string(name);
  text_.append("# HELP ").append(family_).append(" ").append(help).append("\n");
  text_.append("# TYPE ").append(family_).append(" ").append(type).append("\n");
}

void MetricsText::Sample(double value, Labels labels, std::string_view suffix) {
  text_.append(family_).append(suffix);
  char separator = '{';
  for (const auto& [name, label] : labels) {
    text_.append(1, separator).append(name).append("=\"");
    AppendLabelValue(label, text_);
    text_.append("\"");
    separator = ',';
  }
  if (labels.size() != 0) text_.append("}");
  text_.append(" ").append(NumberText(value)).append("\n");
}

std::string WriteMetrics(const NodeFigures& figures) {
  MetricsText out;
  out.Family("build_info", "gauge", "1, with the version of the library as a label.");
  out.Sample(1, {{"version", figures.version}});
  out.Family("start_time_seconds", "gauge", "When the node was started, in seconds since 1970.");
  out.Sample(Seconds(figures.started.time_since_epoch()));
  WriteConnections(figures.traffic, out);
  WriteQueries(figures.traffic, out);
  WriteAnswerTimes(figures.traffic, out);
  WriteFleet(figures.fleet, out);
  out.Family("log_lines_left_out_total", "counter",
             "Lines on bad peers that were left out of the log, for there were too many.");
  out.Sample(Count(figures.log_lines_left_out));
  out.Family("reloads_total", "counter", "Times that the configuration was read again.");
  out.Sample(Count(figures.traffic.reloads), {{"result", "ok"}});
  out.Sample(Count(figures.traffic.failed_reloads), {{"result", "failed"}});
  return out.text();
}

}  // namespace vt::node
