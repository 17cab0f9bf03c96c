#include "host/agent/operator/prometheus_text.h"

#include <algorithm>
#include <cstddef>

#include "host/agent/operator/status_json.h"

namespace vrx {

namespace {

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
    if (!value.is_string()) return jsonOf(value);
    return StatusValue::parse(jsonOf(value)).get<std::string>();  // valid UTF-8
}

std::string numberOf(const StatusValue& value) {
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    return jsonOf(value);
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

std::string labelValue(std::string_view text) {
    return escaped(textOf(StatusValue(std::string(text))), true);
}

std::string prometheusText(const std::vector<StatusSection>& sections) {
    Metrics metrics;
    for (const StatusSection& section : sections) {
        for (const std::vector<StatusValue>& row : section.rows) addRow(metrics, section, row);
    }
    return metrics.text();
}

}  // namespace vrx
