// Creates trap destinations as fast as it can, in transactions of two rows, and names each pair on standard output when
// it was acknowledged. The durability test kills it.
//
//     trap_destination_writer FILE FIRST-PORT
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/destinations/trap_destination_result.h"
#include "host/destinations/trap_destination_store.h"

namespace vrx {}  // namespace vrx

using namespace vrx;

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    TrapDestinationStore store(argv[1], 100000);
    for (unsigned int port = static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10));; ++port) {
        tTrapDestInfo row;
        row.port = port;
        TrapDestinationStore::Transaction transaction(store);
        for (const char* address : {"192.0.2.1", "192.0.2.2"}) {
            row.address = address;
            if (store.create(row) != TRAP_DESTINATION_OK) return 1;
        }
        if (transaction.commit() != TRAP_DESTINATION_OK) return 1;
        const std::string line = std::to_string(port) + "\n";
        if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 1;
    }
}
