#include "node/status.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

#include "node/http_request.h"

namespace vt::node {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kLongestFind = 256;
constexpr std::array<std::pair<std::string_view, EntityOrder>, 5> kOrders = {
    {{"fleet", EntityOrder::kFleet},
     {"-watts", EntityOrder::kMostPower},
     {"watts", EntityOrder::kLeastPower},
     {"-level", EntityOrder::kHighestLevel},
     {"level", EntityOrder::kLowestLevel}}};

template <class Time>
std::int64_t Milliseconds(Time time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

double Watts(std::int64_t milliwatts) { return static_cast<double>(milliwatts) / 1e3; }

std::uint32_t ReadNumber(const std::string& name, const std::string& text) {
  std::uint32_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop != text.data() + text.size()) {
    throw HttpError(400, "'" + name + "' is no number that it may be");
  }
  return number;
}

EntityOrder ReadOrder(const std::string& text) {
  const auto found = std::ranges::find(kOrders, text, &decltype(kOrders)::value_type::first);
  if (found == kOrders.end()) throw HttpError(400, "there is no such 'sort'");
  return found->second;
}

Json NodeJson(const NodeStatus& status) {
  const NodeFigures& figures = status.figures;
  return {{"name", figures.fleet.node_name},
          {"id", figures.fleet.node_id},
          {"address", status.address},
          {"version", figures.version},
          {"started", Milliseconds(figures.started)}};
}

Json TotalsJson(const FleetTotals& fleet) {
  Json watts = Json::object();
  for (std::size_t i = 0; i < fleet.milliwatts.size(); ++i) {
    watts[std::string(kPowerCategoryNames[i])] = Watts(fleet.milliwatts[i]);
  }
  Json domains = Json::array();
  for (const FleetTotals::Domain& domain : fleet.domains) {
    domains.push_back({{"name", domain.name},
                       {"entities", domain.entities},
                       {"watts", Watts(domain.milliwatts)}});
  }
  return {{"devices", fleet.devices},
          {"entities", fleet.entities},
          {"watts", std::move(watts)},
          {"domains", std::move(domains)},
          {"domain_count", fleet.domain_count}};
}

Json HistoryJson(const std::deque<PowerHistory::Point>& history) {
  Json points = Json::array();
  for (const PowerHistory::Point& point : history) {
    points.push_back({Milliseconds(point.at), Watts(point.milliwatts)});
  }
  return points;
}

Json PageJson(const PageRequest& request, const EntityPage& page) {
  Json rows = Json::array();
  for (const EntityRow& row : page.rows) {
    rows.push_back({{"id", row.id},
                    {"entity", row.number},
                    {"name", row.name},
                    {"role", row.role},
                    {"keywords", row.keywords},
                    {"domain", row.domain},
                    {"level", row.level},
                    {"importance", row.importance},
                    {"category", NameOf(row.category)},
                    {"watts", row.milliwatts ? Json(Watts(*row.milliwatts)) : Json()}});
  }
  return {{"from", request.from}, {"matching", page.matching}, {"rows", std::move(rows)}};
}

template <std::size_t kSize>
Json CountsJson(const std::array<std::string_view, kSize>& names,
                const std::array<std::uint64_t, kSize>& counts) {
  Json json = Json::object();
  for (std::size_t i = 0; i < kSize; ++i) json[std::string(names[i])] = counts[i];
  return json;
}

Json QueriesJson(const NodeStatus& status) {
  Json recent = Json::array();
  for (const AnsweredQuery& query : status.queries) {
    const double milliseconds = std::chrono::duration<double, std::milli>(query.duration).count();
    recent.push_back({{"at", Milliseconds(query.at)},
                      {"peer", query.client},
                      {"kind", NameOf(query.note.kind)},
                      {"domain", query.note.domain},
                      {"changes", query.note.changes},
                      {"accepted", query.note.accepted},
                      {"refused", query.note.refused},
                      {"messages", query.messages},
                      {"milliseconds", milliseconds}});
  }
  return {{"total", CountsJson(kQueryKindNames, status.figures.traffic.queries)},
          {"recent", std::move(recent)}};
}

Json BadPeersJson(const NodeStatus& status) {
  Json recent = Json::array();
  for (const BadPeer& peer : status.bad_peers) {
    recent.push_back({{"at", Milliseconds(peer.at)},
                      {"peer", peer.client},
                      {"reason", NameOf(peer.rejection)},
                      {"text", peer.reason}});
  }
  return {{"total", CountsJson(kRejectionNames, status.figures.traffic.rejections)},
          {"recent", std::move(recent)}};
}

}  // namespace

PageRequest ReadPageRequest(const std::map<std::string, std::string>& fields) {
  PageRequest request;
  for (const auto& [name, value] : fields) {
    if (name == "from") request.from = ReadNumber(name, value);
    if (name == "count") {
      request.count = std::min(ReadNumber(name, value), PageRequest::kMostRows);
    }
    if (name == "sort") request.order = ReadOrder(value);
    if (name == "find") {
      if (value.size() > kLongestFind) throw HttpError(400, "'find' is too long");
      request.find = value;
    }
  }
  return request;
}

std::string WriteStatus(const NodeStatus& status) {
  const TrafficCounts& traffic = status.figures.traffic;
  const Json json = {{"now", Milliseconds(status.now)},
                     {"node", NodeJson(status)},
                     {"totals", TotalsJson(status.figures.fleet)},
                     {"history", HistoryJson(status.history)},
                     {"entities", PageJson(status.request, status.page)},
                     {"queries", QueriesJson(status)},
                     {"bad_peers", BadPeersJson(status)},
                     {"connections", {{"open", traffic.open}, {"accepted", traffic.accepted}}},
                     {"sent", {{"messages", traffic.messages_sent}, {"bytes", traffic.bytes_sent}}},
                     {"reloads", {{"ok", traffic.reloads}, {"failed", traffic.failed_reloads}}}};
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace vt::node
