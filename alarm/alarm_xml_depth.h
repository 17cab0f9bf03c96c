// How deep the elements of an XML text are nested, found without recursion.
#pragma once

#include <cstddef>
#include <string>

// Whether elements stand on more than `levels` levels (the outermost is on level 1). Reads the text as TinyXML does,
// its liberties included: what TinyXML would take for an element is never overlooked. Where TinyXML stops at an error
// this reads on, so a broken text may count as deeper than TinyXML would go.
bool isNestedDeeperThan(const std::string& xml, std::size_t levels);
