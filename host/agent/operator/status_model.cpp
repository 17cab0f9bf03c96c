#include "host/agent/operator/status_section.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace vrx {

namespace {

double secondsOf(LatencyHistogram::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

std::string dump(const StatusValue& value) {
    return value.dump(-1, ' ', false, StatusValue::error_handler_t::replace);
}

std::string escaped(const std::string& text, bool quoted) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\\\";
        } else if (c == '\n') {
            escaped += "\\n";
        } else if (c == '"' && quoted) {
            escaped += "\\\"";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string textOf(const StatusValue& value) {
    if (value.is_null()) return {};
    if (!value.is_string()) return dump(value);
    return StatusValue::parse(dump(value)).get<std::string>();  // valid UTF-8
}

std::string numberOf(const StatusValue& value) {
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    return dump(value);
}

// name="value",... without braces
class Labels {
public:
    void add(const std::string& name, const std::string& value) {
        m_text += (m_text.empty() ? "" : ",") + name + "=\"" + escaped(value, true) + "\"";
    }
    Labels with(const std::string& name, const std::string& value) const {
        Labels more = *this;
        more.add(name, value);
        return more;
    }
    std::string text() const { return m_text.empty() ? "" : "{" + m_text + "}"; }

private:
    std::string m_text;
};

// The metrics in the order of their first samples.
class Metrics {
public:
    void add(const std::string& name, const char* type, const char* help, const std::string& suffix,
             const Labels& labels, const std::string& value) {
        auto metric = std::find_if(m_metrics.begin(), m_metrics.end(), [&](const auto& m) { return m.name == name; });
        if (metric == m_metrics.end()) {
            const std::string head =
                "# HELP " + name + " " + escaped(help, false) + "\n# TYPE " + name + " " + type + "\n";
            metric = m_metrics.insert(metric, {name, head});
        }
        metric->text += name + suffix + labels.text() + " " + value + "\n";
    }

    std::string text() const {
        std::string text;
        for (const Metric& metric : m_metrics) text += metric.text;
        return text;
    }

private:
    struct Metric {
        std::string name;
        std::string text;
    };
    std::vector<Metric> m_metrics;
};

void addHistogram(Metrics& metrics, const StatusField& field, const Labels& labels, const StatusValue& value) {
    const auto add = [&](const char* suffix, const Labels& ofSample, const StatusValue& number) {
        metrics.add(field.metric, "histogram", field.help, suffix, ofSample, numberOf(number));
    };
    for (const StatusValue& bucket : value.at("buckets")) {
        add("_bucket", labels.with("le", numberOf(bucket.at("seconds"))), bucket.at("count"));
    }
    add("_bucket", labels.with("le", "+Inf"), value.at("count"));
    add("_sum", labels, value.at("sum_seconds"));
    add("_count", labels, value.at("count"));
}

void addField(Metrics& metrics, const StatusField& field, const Labels& labels, const StatusValue& value) {
    if (value.is_null() || *field.metric == '\0') return;
    if (field.kind == StatusKind::Histogram) {
        addHistogram(metrics, field, labels, value);
        return;
    }
    const char* const type = field.kind == StatusKind::Counter ? "counter" : "gauge";
    if (*field.parts == '\0') {
        metrics.add(field.metric, type, field.help, "", labels, numberOf(value));
        return;
    }
    for (const auto& [part, number] : value.items()) {
        metrics.add(field.metric, type, field.help, "", labels.with(field.parts, part), numberOf(number));
    }
}

void addRow(Metrics& metrics, const StatusSection& section, const std::vector<StatusValue>& row) {
    Labels labels;
    Labels info;
    const StatusField* infoField = nullptr;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const StatusField& field = section.fields[i];
        if (field.kind == StatusKind::Label) labels.add(field.metric, textOf(row[i]));
        if (field.kind == StatusKind::Info) {
            info.add(field.key, textOf(row[i]));
            if (infoField == nullptr) infoField = &field;
        }
    }
    if (infoField != nullptr) metrics.add(infoField->metric, "gauge", infoField->help, "", info, "1");
    for (std::size_t i = 0; i < row.size(); ++i) {
        const StatusKind kind = section.fields[i].kind;
        if (kind == StatusKind::Gauge || kind == StatusKind::Counter || kind == StatusKind::Histogram) {
            addField(metrics, section.fields[i], labels, row[i]);
        }
    }
}

}  // namespace

StatusSection joined(StatusSection left, const StatusSection& right) {
    left.fields.insert(left.fields.end(), right.fields.begin(), right.fields.end());
    for (std::size_t i = 0; i < left.rows.size(); ++i) {
        left.rows[i].insert(left.rows[i].end(), right.rows.at(i).begin(), right.rows.at(i).end());
    }
    return left;
}

StatusValue statusOf(std::chrono::system_clock::time_point time) {
    if (time == std::chrono::system_clock::time_point{}) return nullptr;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    char text[32];
    if (::gmtime_r(&seconds, &parts) == nullptr || std::strftime(text, sizeof text, "%FT%TZ", &parts) == 0) {
        return nullptr;
    }
    return text;
}

StatusValue statusOf(const LatencyHistogram& histogram) {
    StatusValue buckets = StatusValue::array();
    std::uint64_t upTo = 0;
    for (std::size_t i = 0; i < LatencyHistogram::BUCKETS; ++i) {
        upTo += histogram.inBucket(i);
        buckets.push_back({{"seconds", secondsOf(LatencyHistogram::bound(i))}, {"count", upTo}});
    }
    return {{"count", histogram.count()},
            {"sum_seconds", secondsOf(histogram.sum())},
            {"max_seconds", secondsOf(histogram.max())},
            {"p50_seconds", secondsOf(histogram.quantile(0.5))},
            {"p90_seconds", secondsOf(histogram.quantile(0.9))},
            {"p99_seconds", secondsOf(histogram.quantile(0.99))},
            {"buckets", buckets}};
}

std::string statusAsJson(const std::vector<StatusSection>& sections) {
    StatusValue document = StatusValue::object();
    for (const StatusSection& section : sections) {
        StatusValue rows = StatusValue::array();
        for (const std::vector<StatusValue>& row : section.rows) {
            StatusValue object = StatusValue::object();
            for (std::size_t i = 0; i < row.size(); ++i) {
                if (*section.fields[i].key != '\0') object[section.fields[i].key] = row[i];
            }
            rows.push_back(std::move(object));
        }
        document[section.name] = section.list ? std::move(rows) : rows.at(0);
    }
    return dump(document);
}

std::string statusAsMetrics(const std::vector<StatusSection>& sections) {
    Metrics metrics;
    for (const StatusSection& section : sections) {
        for (const std::vector<StatusValue>& row : section.rows) addRow(metrics, section, row);
    }
    return metrics.text();
}

}  // namespace vrx
