#include "node/metrics.h"

#include <gtest/gtest.h>

#include "tests/harness/exposition.h"

namespace vt::testing {
namespace {

using node::MetricsText;
using node::NodeFigures;

node::AnsweredQuery AnsweredIn(node::QueryKind kind, std::chrono::nanoseconds duration) {
  node::AnsweredQuery query;
  query.note.kind = kind;
  query.duration = duration;
  return query;
}

NodeFigures Figures(const node::Traffic& traffic) {
  NodeFigures figures;
  figures.version = "1.2";
  figures.started = node::WallTime(std::chrono::seconds(1000));
  figures.traffic = traffic.counts();
  figures.log_lines_left_out = 17;
  figures.fleet.devices = 3;
  figures.fleet.entities = 4;
  figures.fleet.milliwatts = {1500, 2'000'000, 0};
  return figures;
}

TEST(Metrics, AreOfTheFormatAndNamedAfterTheNode) {
  const Exposition metrics(node::WriteMetrics(Figures({})));
  EXPECT_GT(metrics.types().size(), 15u);
  for (const auto& [family, type] : metrics.types()) {
    EXPECT_TRUE(family.starts_with("voltaris_node_")) << family;
    EXPECT_EQ(family.ends_with("_total"), type == "counter") << family;
  }
}

TEST(Metrics, TellWhatTheTrafficWas) {
  node::Traffic traffic;
  traffic.Opened();
  traffic.Opened();
  traffic.Closed();
  traffic.AcceptFailed();
  traffic.Answered(AnsweredIn(node::QueryKind::kSet, std::chrono::milliseconds(2)));
  traffic.Rejected("a", node::Rejection::kTooSlow, "a took too long");
  traffic.Rejected("a", node::Rejection::kTooSlow, "a took too long");
  traffic.Sent(5, 700);
  traffic.Unsent(99);
  traffic.Reloaded(true);
  traffic.Reloaded(false);
  traffic.Reloaded(false);
  const Exposition metrics(node::WriteMetrics(Figures(traffic)));
  EXPECT_EQ(metrics.At("voltaris_node_build_info{version=\"1.2\"}"), 1);
  EXPECT_EQ(metrics.At("voltaris_node_start_time_seconds"), 1000);
  EXPECT_EQ(metrics.At("voltaris_node_connections_accepted_total"), 2);
  EXPECT_EQ(metrics.At("voltaris_node_connections_open"), 1);
  EXPECT_EQ(metrics.At("voltaris_node_accept_failures_total"), 1);
  EXPECT_EQ(metrics.At("voltaris_node_queries_total{kind=\"set\"}"), 1);
  EXPECT_EQ(metrics.At("voltaris_node_queries_total{kind=\"sum\"}"), 0);
  EXPECT_EQ(metrics.At("voltaris_node_rejected_total{reason=\"too_slow\"}"), 2);
  EXPECT_EQ(metrics.At("voltaris_node_rejected_total{reason=\"bad_digest\"}"), 0);
  EXPECT_EQ(metrics.At("voltaris_node_messages_sent_total"), 5);
  EXPECT_EQ(metrics.At("voltaris_node_sent_bytes_total"), 700);
  EXPECT_EQ(metrics.At("voltaris_node_unsent_bytes"), 99);
  EXPECT_EQ(metrics.At("voltaris_node_devices"), 3);
  EXPECT_EQ(metrics.At("voltaris_node_entities"), 4);
  EXPECT_EQ(metrics.At("voltaris_node_power_watts{category=\"consumer\"}"), 1.5);
  EXPECT_EQ(metrics.At("voltaris_node_power_watts{category=\"producer\"}"), 2000);
  EXPECT_EQ(metrics.At("voltaris_node_log_lines_left_out_total"), 17);
  EXPECT_EQ(metrics.At("voltaris_node_reloads_total{result=\"ok\"}"), 1);
  EXPECT_EQ(metrics.At("voltaris_node_reloads_total{result=\"failed\"}"), 2);
}

TEST(Metrics, BucketsOfAnswerTimesAddUpToTheirBounds) {
  node::Traffic traffic;
  const auto kind = node::QueryKind::kCollect;
  traffic.Answered(AnsweredIn(kind, std::chrono::microseconds(100)));  // just the first bound
  traffic.Answered(AnsweredIn(kind, std::chrono::microseconds(101)));
  traffic.Answered(AnsweredIn(kind, std::chrono::seconds(11)));  // above the last
  const Exposition metrics(node::WriteMetrics(Figures(traffic)));
  const std::string name = "voltaris_node_answer_seconds";
  EXPECT_EQ(metrics.TypeOf(name), "histogram");
  EXPECT_EQ(metrics.At(name + "_bucket{le=\"1e-04\"}"), 1);
  EXPECT_EQ(metrics.At(name + "_bucket{le=\"3e-04\"}"), 2);
  EXPECT_EQ(metrics.At(name + "_bucket{le=\"10\"}"), 2);
  EXPECT_EQ(metrics.At(name + "_bucket{le=\"+Inf\"}"), 3);
  EXPECT_EQ(metrics.At(name + "_count"), 3);
  EXPECT_DOUBLE_EQ(metrics.At(name + "_sum"), 11.000201);
}

TEST(Metrics, LabelsAreEscaped) {
  MetricsText text;
  text.Family("x", "gauge", "Some help.");
  text.Sample(1, {{"a", "quote \" backslash \\ line\n"}, {"b", ""}});
  EXPECT_EQ(text.text(),
            "# HELP voltaris_node_x Some help.\n# TYPE voltaris_node_x gauge\n"
            "voltaris_node_x{a=\"quote \\\" backslash \\\\ line\\n\",b=\"\"} 1\n");
  EXPECT_EQ(Exposition(text.text()).samples().size(), 1u);
}

TEST(Traffic, KeepsTheLastOnesNewestFirst) {
  node::Traffic traffic;
  for (int i = 1; i <= 60; ++i) {
    node::AnsweredQuery query;
    query.client = std::to_string(i);
    traffic.Answered(query);
    traffic.Rejected(std::to_string(i), node::Rejection::kMalformed, std::string(10'000, 'x'));
  }
  ASSERT_EQ(traffic.queries().size(), node::Traffic::kKept);
  EXPECT_EQ(traffic.queries().front().client, "60");
  EXPECT_EQ(traffic.queries().back().client, "11");
  ASSERT_EQ(traffic.bad_peers().size(), node::Traffic::kKept);
  EXPECT_EQ(traffic.bad_peers().front().client, "60");
  EXPECT_EQ(traffic.bad_peers().front().reason.size(), 200u) << "bounded, whoever wrote it";
}

}  // namespace
}  // namespace vt::testing
