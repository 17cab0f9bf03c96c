// The definition files that the product's configuration names.
#pragma once

#include <string>

namespace vrx {

// Paths; empty where none is configured.
struct DefinitionFiles {
    std::string definitions;
    std::string enumerations;
};

[[nodiscard]] DefinitionFiles configuredDefinitionFiles();

}  // namespace vrx
