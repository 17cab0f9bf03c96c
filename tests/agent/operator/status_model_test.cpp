#include "host/agent/operator/status_model.h"

#include <gtest/gtest.h>

#include "host/agent/operator/prometheus_text.h"
#include "host/agent/operator/status_json.h"

namespace vrx {

namespace {

using Kind = StatusKind;
using Value = StatusValue;
using std::chrono::microseconds;

struct Tap {
    std::string name;
    double litres;
    bool open;
};

const StatusItem<Tap> TAPS[] = {
    {{"name", Kind::Label, "tap"}, [](const Tap& tap) -> Value { return tap.name; }},
    {{"litres", Kind::Counter, "vrx_litres_total", "What ran out."},
     [](const Tap& tap) -> Value { return tap.litres; }},
    {{"open", Kind::Gauge, "vrx_open", "1 while it runs."}, [](const Tap& tap) -> Value { return tap.open; }},
    {{"note"}, [](const Tap&) -> Value { return "of the JSON only"; }},
};

const StatusItem<int> HOUSE[] = {
    {{"street", Kind::Info, "vrx_house_info", "The house."}, [](const int&) -> Value { return "High \"Street\"\\\n"; }},
    {{"number", Kind::Info}, [](const int& number) -> Value { return number; }},
    {{"rooms", Kind::Gauge, "vrx_rooms", "Rooms, by\nuse \\ kind.", "use"},
     [](const int&) -> Value {
         return {{"sleep", 2}, {"bath and more", 1}};
     }},
    {{"age", Kind::Gauge, "vrx_age_seconds", "Unknown."}, [](const int&) -> Value { return nullptr; }},
};

TEST(StatusSection, AnObjectAndAListAsJson) {
    EXPECT_EQ(
        statusAsJson({statusSection("house", HOUSE, 7),
                      statusSection("taps", TAPS, std::vector<Tap>{{"a", 1.5, true}, {"b", 0, false}}),
                      statusSection("none", TAPS, std::vector<Tap>{})}),
        R"({"house":{"street":"High \"Street\"\\\n","number":7,"rooms":{"sleep":2,"bath and more":1},"age":null},)"
        R"("taps":[{"name":"a","litres":1.5,"open":true,"note":"of the JSON only"},)"
        R"({"name":"b","litres":0.0,"open":false,"note":"of the JSON only"}],"none":[]})");
}

TEST(StatusSection, MetricsHaveHeadsLabelsAndEscapes) {
    EXPECT_EQ(prometheusText({statusSection("house", HOUSE, 7)}),
              "# HELP vrx_house_info The house.\n"
              "# TYPE vrx_house_info gauge\n"
              "vrx_house_info{street=\"High \\\"Street\\\"\\\\\\n\",number=\"7\"} 1\n"
              "# HELP vrx_rooms Rooms, by\\nuse \\\\ kind.\n"
              "# TYPE vrx_rooms gauge\n"
              "vrx_rooms{use=\"sleep\"} 2\n"
              "vrx_rooms{use=\"bath and more\"} 1\n");
}

TEST(StatusSection, SamplesOfOneMetricStandTogetherWhateverSectionTheyAreFrom) {
    const std::vector<Tap> upstairs = {{"a", 1, true}, {"b", 2, false}};
    const std::vector<Tap> downstairs = {{"c", 3, true}};
    EXPECT_EQ(prometheusText({statusSection("up", TAPS, upstairs), statusSection("down", TAPS, downstairs)}),
              "# HELP vrx_litres_total What ran out.\n"
              "# TYPE vrx_litres_total counter\n"
              "vrx_litres_total{tap=\"a\"} 1.0\n"
              "vrx_litres_total{tap=\"b\"} 2.0\n"
              "vrx_litres_total{tap=\"c\"} 3.0\n"
              "# HELP vrx_open 1 while it runs.\n"
              "# TYPE vrx_open gauge\n"
              "vrx_open{tap=\"a\"} 1\n"
              "vrx_open{tap=\"b\"} 0\n"
              "vrx_open{tap=\"c\"} 1\n");
}

TEST(StatusSection, JoinedSectionsHaveTheFieldsOfBoth) {
    const StatusItem<int> hidden[] = {{{"", Kind::Label, "floor"}, [](const int& floor) -> Value { return floor; }}};
    const StatusItem<int> doors[] = {
        {{"doors", Kind::Gauge, "vrx_doors", "Doors."}, [](const int& count) -> Value { return count; }}};
    const std::vector<StatusSection> sections = {joined(statusSection("floors", hidden, std::vector<int>{0, 1}),
                                                        statusSection("", doors, std::vector<int>{5, 6}))};
    EXPECT_EQ(statusAsJson(sections), R"({"floors":[{"doors":5},{"doors":6}]})");
    EXPECT_EQ(prometheusText(sections),
              "# HELP vrx_doors Doors.\n"
              "# TYPE vrx_doors gauge\n"
              "vrx_doors{floor=\"0\"} 5\n"
              "vrx_doors{floor=\"1\"} 6\n");
}

TEST(StatusSection, BytesThatAreNoTextAreReplaced) {
    const std::vector<StatusSection> sections = {statusSection("taps", TAPS, std::vector<Tap>{{"a\xFF", 1, true}})};
    EXPECT_NE(statusAsJson(sections).find("\"a\xEF\xBF\xBD\""), std::string::npos);
    EXPECT_NE(prometheusText(sections).find("{tap=\"a\xEF\xBF\xBD\"}"), std::string::npos);
}

TEST(StatusSection, TimesAreUtcAndNoTimeIsNull) {
    using std::chrono::system_clock;
    EXPECT_EQ(statusOf(system_clock::from_time_t(1700000000)), "2023-11-14T22:13:20Z");
    EXPECT_EQ(statusOf(system_clock::time_point{}), nullptr);
}

TEST(StatusSection, AHistogramsBucketsCountAllUpToThem) {
    LatencyHistogram histogram;
    histogram.add(microseconds(10));
    histogram.add(microseconds(20));
    histogram.add(std::chrono::hours(1));
    const StatusItem<LatencyHistogram> items[] = {
        {{"latency", Kind::Histogram, "vrx_seconds", "Times."}, [](const LatencyHistogram& h) { return statusOf(h); }}};
    const std::vector<StatusSection> sections = {statusSection("times", items, histogram)};

    const Value json = Value::parse(statusAsJson(sections)).at("times").at("latency");
    EXPECT_EQ(json.at("count"), 3);
    EXPECT_EQ(json.at("max_seconds"), 3600.0);
    EXPECT_EQ(json.at("buckets").size(), LatencyHistogram::BUCKETS);
    EXPECT_EQ(json.at("buckets").back().at("count"), 2);

    const std::string text = prometheusText(sections);
    const std::string begin =
        "# HELP vrx_seconds Times.\n# TYPE vrx_seconds histogram\n"
        "vrx_seconds_bucket{le=\"1.6384e-05\"} 1\nvrx_seconds_bucket{le=\"3.2768e-05\"} 2\n";
    EXPECT_EQ(text.substr(0, begin.size()), begin);
    const std::string end = "vrx_seconds_bucket{le=\"+Inf\"} 3\nvrx_seconds_sum 3600.00003\nvrx_seconds_count 3\n";
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

}  // namespace

}  // namespace vrx
