// An alarm file read in the plainest way, for comparing: whether it has to load, and the element whose children it
// defines. Nothing of alarm/ but the number of levels is used.
#pragma once

#include <tinyxml.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "alarm/alarm_xml_file.h"
#include "fuzz/finding.h"

class PlainAlarmFile {
public:
    // `root` and `list`: the names of the outermost element and of the one in it that holds the definitions.
    PlainAlarmFile(const std::uint8_t* data, std::size_t size, const char* root, const char* list) {
        const std::string text = textOf(data, size);
        const char* const end = m_document.Parse(text.c_str());
        m_stopsEarly = end != nullptr && *end != '\0';
        if (m_document.Error() || depthOf(m_document) > ALARM_XML_MAX_DEPTH) return;
        const TiXmlElement* const outermost = m_document.FirstChildElement();
        if (outermost != nullptr && outermost->ValueStr() == root) m_list = outermost->FirstChildElement(list);
    }

    const TiXmlElement* list() const { return m_list; }

    // `loaded`: what came of the load, null with a reason where it failed. Aborts when it should have ended otherwise.
    void checkLoad(const void* loaded, const std::string& failure) const {
        if (loaded != nullptr) {
            require(m_list != nullptr, "a file loads that should not");
            return;
        }
        require(failure.rfind("CVRX_Exception: ", 0) == 0, "a load failed without a reason");
        // Levels are counted in what stands after the part that TinyXML takes, too.
        const bool tooDeep = failure.find("\nElements are nested more than ") != std::string::npos;
        require(m_list == nullptr || (m_stopsEarly && tooDeep), "a file does not load that should");
    }

private:
    // Up to the first zero byte, each end of a line a line feed; and zeros, as TinyXML steps over the end of a text
    // that ends within a character.
    static std::string textOf(const std::uint8_t* data, std::size_t size) {
        std::string text;
        for (std::size_t i = 0; i < size && data[i] != 0; ++i) {
            if (data[i] == '\r' && i + 1 < size && data[i + 1] == '\n') continue;
            text += data[i] == '\r' ? '\n' : static_cast<char>(data[i]);
        }
        return text.append(8, '\0');
    }

    static std::size_t depthOf(const TiXmlNode& node) {
        std::size_t deepest = 0;
        for (const TiXmlElement* e = node.FirstChildElement(); e != nullptr; e = e->NextSiblingElement())
            deepest = std::max(deepest, 1 + depthOf(*e));
        return deepest;
    }

    TiXmlDocument m_document;
    const TiXmlElement* m_list = nullptr;  // null when the load has to fail
    bool m_stopsEarly = false;
};
