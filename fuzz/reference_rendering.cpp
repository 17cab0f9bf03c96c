#include "fuzz/reference_rendering.h"

#include <cstdlib>

namespace reference {

namespace {

constexpr int NO_INDEX_BEHIND_MARK = 16793615;
const std::string MARK = "##";

// All pieces between separators, empty ones too; of an empty text none.
std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    if (text.empty()) return pieces;
    pieces.emplace_back();
    for (const char c : text) {
        if (c == separator) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    return pieces;
}

std::string replaceAll(const std::string& text, const std::string& from, const std::string& to) {
    std::string out;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text.compare(at, from.size(), from) == 0) {
            out += to;
            at += from.size();
        } else {
            out += text[at];
            ++at;
        }
    }
    return out;
}

// Leading blanks, then digits; 0 without digits. Texts are two characters long.
unsigned int unsignedNumber(const std::string& text) {
    std::size_t at = 0;
    while (at < text.size() && std::string(" \t\n\v\f\r").find(text[at]) != std::string::npos) ++at;
    unsigned int number = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
        number = number * 10 + static_cast<unsigned int>(text[at] - '0');
        ++at;
    }
    return number;
}

// As %s shows it.
std::string shown(const std::string& text) {
    return text.c_str();
}

}  // namespace

void Renderer::define(const Definition& definition) {
    m_definitions.emplace(definition.id, definition);
}

void Renderer::enumerate(const std::string& type, const std::string& value, const std::string& description) {
    m_descriptions.emplace(type + "_" + value, description);
}

int Renderer::render(unsigned long long id, const std::string& parameters, Texts& texts) {
    if (m_definitions.empty()) {
        say("alarm config info is empty.");
        return -1;
    }
    if (id == 0) {
        say("invalid alarm id 0");
        return -1;
    }
    if (m_definitions.count(id) == 0) {
        say("alarm " + std::to_string(id) + " desn't need to be parsed.");
        return -1;
    }
    const Definition& definition = m_definitions.at(id);

    std::vector<std::string> values = split(parameters, ',');
    for (std::string& value : values) {
        value = replaceAll(value, "&#44;", ",");
        value = replaceAll(value, "&#38;", "&");
        if (value.empty()) value = "--";
    }
    if (definition.paramDesc) replaceCodes(id, *definition.paramDesc, values);

    texts.level = static_cast<unsigned int>(id & 0xFFFFFFFFU);

    const std::vector<Placeholder> placeholders = placeholdersOf(definition.detail, values);

    std::string withoutMaps = definition.detail;
    for (;;) {
        const std::size_t open = withoutMaps.find('{');
        if (open == std::string::npos) break;
        const std::size_t close = withoutMaps.find('}', open);
        if (close == std::string::npos) break;
        withoutMaps = withoutMaps.substr(0, open) + withoutMaps.substr(close + 1);
    }

    if (!expand(definition.location, placeholders, texts.location)) {
        say("parse alarm location " + definition.location + " using parameter " + shown(parameters) +
            " failed. parsed location is " + texts.location + ".");
        return NO_INDEX_BEHIND_MARK;
    }
    if (!expand(withoutMaps, placeholders, texts.detail)) {
        say("parse alarm detail " + definition.detail + " using parameter " + shown(parameters) +
            " failed, parsed detail is " + texts.detail + ".");
        return NO_INDEX_BEHIND_MARK;
    }
    if (!expand(definition.suggestion, placeholders, texts.suggestion)) {
        say("parse alarm suggestion " + definition.suggestion + " using parameter " + shown(parameters) +
            " failed, parsed detail is " + texts.suggestion + ".");
        return NO_INDEX_BEHIND_MARK;
    }
    texts.name = definition.name;
    return 0;
}

// "2=DiskState,4=PortType": what stands at these positions is a code. Pieces without "=" say nothing.
void Renderer::replaceCodes(unsigned long long id, const std::string& paramDesc, std::vector<std::string>& parameters) {
    for (const std::string& piece : split(paramDesc, ',')) {
        const std::size_t equals = piece.find('=');
        if (equals == std::string::npos) continue;
        const auto position = static_cast<unsigned int>(strtol(piece.substr(0, equals).c_str(), nullptr, 10));
        const std::string type = piece.substr(equals + 1);
        if (position >= parameters.size()) {
            say("alarm " + std::to_string(id) + " parameter enume value " + std::to_string(static_cast<int>(position)) +
                " is out of rang[0, " + std::to_string(parameters.size()) + "]");
            continue;
        }
        const std::string key = type + "_" + parameters[position];
        if (m_descriptions.count(key) == 0) {
            say("not found enum value literal desc of key " + shown(key) + " in map");
            continue;
        }
        parameters[position] = m_descriptions.at(key);
    }
}

std::vector<Renderer::Placeholder> Renderer::placeholdersOf(const std::string& detail,
                                                            const std::vector<std::string>& parameters) {
    std::vector<Placeholder> placeholders;
    std::size_t start = 0;
    for (;;) {
        const std::size_t mark = detail.find(MARK, start);
        if (mark == std::string::npos) break;
        const std::string indexText = detail.substr(mark + 2, 2);
        if (indexText.empty()) break;
        const unsigned int index = unsignedNumber(indexText);
        std::string value = index < parameters.size() ? parameters[index] : "--";

        const std::size_t open = detail.find('{', mark);
        if (open != std::string::npos && open <= mark + 7) {
            const std::size_t close = detail.find('}', mark);
            if (close == std::string::npos) break;
            std::string map;
            for (std::size_t at = open + 1; at < close; ++at) map += detail[at];
            if (index < parameters.size()) {
                for (const std::string& entry : split(map, ';')) {
                    const std::vector<std::string> parts = split(entry, ':');
                    if (parts.size() == 2 && parts[0] == parameters[index]) {
                        value = parts[1];
                        break;
                    }
                }
            }
        }
        placeholders.push_back({index, value});
        start = mark + 2;
    }
    return placeholders;
}

// False when the text ends in a mark; `out` is as it was then.
bool Renderer::expand(const std::string& text, const std::vector<Placeholder>& placeholders, std::string& out) {
    if (placeholders.empty()) {
        out = text;
        return true;
    }
    std::string result = text;
    std::size_t position = 0;
    std::size_t replacements = 0;
    for (;;) {
        const std::size_t mark = result.find(MARK, position);
        if (mark == std::string::npos) break;
        const std::string indexText = result.substr(mark + 2, 2);
        if (indexText.empty()) {
            say("no alarm parameter pos");
            return false;
        }
        if (replacements == MOST_REPLACEMENTS || result.size() > text.size() + MOST_GROWTH) {
            say("alarm text needs more than " + std::to_string(MOST_REPLACEMENTS) +
                " replacements or grows by more than " + std::to_string(MOST_GROWTH) +
                " bytes, the rest stays as it is.");
            break;
        }
        ++replacements;
        if (result.size() > m_work) throw TooMuchWork();
        m_work -= result.size();

        const auto index = static_cast<int>(strtol(indexText.c_str(), nullptr, 10));
        std::string value;
        std::size_t length = MARK.size() + indexText.size();
        if (index < 0 || static_cast<std::size_t>(index) >= placeholders.size()) {
            say("alarm parameter pos " + std::to_string(index) + " is out of range[0, " +
                std::to_string(placeholders.size()) + "]");
            value = "None";
        } else {
            bool found = false;
            for (const Placeholder& placeholder : placeholders) {
                if (placeholder.index != static_cast<unsigned int>(index)) continue;
                value = placeholder.value;
                found = true;
                break;
            }
            if (found) {
                length = 4;
            } else {
                say("alarm parameter pos " + std::to_string(index) + " is not in the parameters of the detail");
                value = "--";
            }
        }
        result.replace(mark, length, value);
        position = mark;
    }
    out = result;
    return true;
}

}  // namespace reference
