// The product's root directory: configuration, definitions, MIBs and state stand below it.
#pragma once

#include <string>

namespace vrx {

// Names the root for the rest of the process, before other threads start. Without it the environment variable VRX_ROOT
// names it, and where that is not set (or empty) the installed default holds.
void setProductRoot(const std::string& root);

// A path of the product: `path` itself when it is absolute, else below the root.
std::string productPath(const std::string& path);

// The folder of what outlives the process; it is made, for its owner alone, where it does not exist. Throws
// std::system_error.
std::string stateFolder();

}  // namespace vrx
