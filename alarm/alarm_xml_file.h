// Opens an XML file for TinyXML, which parses and frees by recursion: a file whose elements are nested too deep never
// reaches it, nor does one that is too large or no file at all.
#pragma once

#include <cstddef>
#include <string>

class TiXmlDocument;

constexpr std::size_t ALARM_XML_MAX_DEPTH = 64;           // levels of elements
constexpr unsigned int ALARM_XML_DEFAULT_LIMIT_MIB = 64;  // where SNMP_CONF/ALARM_FILE_LIMIT_MIB names none

// Loads `path` into `document`. Throws CVRX_Exception with `opening`, the path, the reason (TinyXML's where it has
// one) and its place; row and column count from 1, and are 0 where the reason has no place. In a document with tab size
// 0, elements know no place, which takes a seventh of the time away.
void loadAlarmXmlFile(const char* opening, const std::string& path, TiXmlDocument& document);
