#include "host/base/product_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/vrx_utility.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

// The root is chosen once for a process and stays; what the environment says is looked at in a process of its own.
std::string rootOfFreshProcess(const char* environment) {
    std::string text;
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        environment == nullptr ? unsetenv("VRX_ROOT") : setenv("VRX_ROOT", environment, 1);
        const std::string root = VRX_Utility::getVRXRootEnv();
        const bool written = write(ends[1], root.data(), root.size()) == static_cast<ssize_t>(root.size());
        _exit(written ? 0 : 1);
    }
    close(ends[1]);
    char byte = 0;
    while (read(ends[0], &byte, 1) == 1) text += byte;
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return text;
}

TEST(ProductRootOfEnvironment, IsTaken) {
    EXPECT_EQ(rootOfFreshProcess("/opt/product"), "/opt/product");
}

TEST(ProductRootOfEnvironment, LosesTrailingSlashes) {
    EXPECT_EQ(rootOfFreshProcess("/opt/product//"), "/opt/product");
}

TEST(ProductRootOfEnvironment, RootOfTheFileSystemIsTheEmptyText) {
    EXPECT_EQ(rootOfFreshProcess("/"), "");
}

TEST(ProductRootOfEnvironment, EmptyOrMissingGivesTheInstalledDefault) {
    EXPECT_EQ(rootOfFreshProcess(""), VRX_EXPECTED_ROOT);
    EXPECT_EQ(rootOfFreshProcess(nullptr), VRX_EXPECTED_ROOT);
}

TEST(ProductRoot, ChosenOneBeatsTheEnvironment) {
    const TemporaryRoot root;
    setenv("VRX_ROOT", "/opt/other", 1);
    EXPECT_EQ(VRX_Utility::getVRXRootEnv(), root.path());
    unsetenv("VRX_ROOT");
}

TEST(ProductRoot, ChosenOneLosesTrailingSlashes) {
    setProductRoot("/opt/chosen///");
    EXPECT_EQ(VRX_Utility::getVRXRootEnv(), "/opt/chosen");
}

TEST(ProductRoot, RelativePathsStandBelowItAndAbsoluteOnesAlone) {
    setProductRoot("/opt/chosen");
    EXPECT_EQ(productPath("conf/device.xml"), "/opt/chosen/conf/device.xml");
    EXPECT_EQ(productPath("/etc/other.xml"), "/etc/other.xml");
}

TEST(StateFolder, IsMadeForItsOwnerAlone) {
    const TemporaryRoot root;
    EXPECT_EQ(stateFolder(), root.pathOf("state"));
    struct stat status = {};
    ASSERT_EQ(stat(root.pathOf("state").c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST(StateFolder, ThatExistsIsKept) {
    const TemporaryRoot root;
    root.write("state/kept", "content");
    EXPECT_EQ(stateFolder(), root.pathOf("state"));
    EXPECT_EQ(root.read("state/kept"), "content");
}

TEST(StateFolder, ThatCannotBeMadeThrows) {
    setProductRoot("/proc/no-such-folder");
    EXPECT_THROW(stateFolder(), std::system_error);
}

}  // namespace

}  // namespace vrx
