// A call for which each allocation fails in turn.
#include <gtest/gtest.h>

#include <new>

#include "host/transport/backend_client.h"
#include "host/transport/backend_result.h"
#include "tests/backend/test_support.h"
#include "tests/failing_memory.h"

namespace vrx {

TEST(BackendClientMemory, ACallWithoutMemoryFailsAloneAndTheNextOneIsAnswered) {
    const LogCapture log;
    const TemporaryDirectory directory;
    const LocalAddress address = unixAddress(directory.file("s"));
    const ScriptedServer server(address, [answer = textAnswer("hello")](int peer, int) { answerAll(peer, answer); });
    CR8KPackageV3 request;
    request.append(makeRecord(testCommands().getSystemWwn));
    unsigned int failures = 0;
    for (bool failed = true; failed;) {
        BackendClient client(optionsFor(address));
        CR8KPackageV3 response;
        failing_memory::failAt(failures + 1);
        try {
            EXPECT_EQ(client.call(request, response), BACKEND_OK);
            failed = !failing_memory::isFailureToCome();  // taken, and the call did without
        } catch (const std::bad_alloc&) {
        }
        failing_memory::failAt(0);
        if (failed) ++failures;
        CR8KPackageV3 next;
        EXPECT_EQ(client.call(request, next), BACKEND_OK) << failures;
    }
    EXPECT_GT(failures, 5U);
}

}  // namespace vrx
