#include "host/base/product_root.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <system_error>

#include "platform/vrx_utility.h"

namespace vrx {

namespace {

std::optional<std::string>& chosenRoot() {
    static std::optional<std::string> root;
    return root;
}

// The root of the file system becomes the empty text: what is put after it starts with a "/".
std::string withoutTrailingSlash(std::string path) {
    while (!path.empty() && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

void setProductRoot(const std::string& root) {
    chosenRoot() = withoutTrailingSlash(root.empty() ? "." : root);
}

std::string productPath(const std::string& path) {
    return path.substr(0, 1) == "/" ? path : VRX_Utility::getVRXRootEnv() + "/" + path;
}

std::string stateFolder() {
    std::string path = productPath("state");
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return path;
}

}  // namespace vrx

// What platform/ declares has no namespace.
using namespace vrx;

std::string VRX_Utility::getVRXRootEnv() {
    if (chosenRoot()) return *chosenRoot();
    const char* fromEnvironment = std::getenv("VRX_ROOT");
    if (fromEnvironment != nullptr && *fromEnvironment != '\0') return withoutTrailingSlash(fromEnvironment);
    return VRX_INSTALLED_ROOT;
}
