// What a listener for TLS shows its clients, and whom it takes for one.
//
// Threads: any.
#pragma once

#include <string>

namespace vrx {

// In PEM. The key goes with the certificate: it is the first one of a chain.
struct TlsCredentials {
    std::string certificate;
    std::string key;
    std::string clients;  // authorities whose certificates clients have

    bool operator==(const TlsCredentials& other) const {
        return certificate == other.certificate && key == other.key && clients == other.clients;
    }
};

struct TlsFiles {
    std::string certificate;
    std::string key;
    std::string clients;
};

// Throws std::invalid_argument that names the file for one that cannot be read or used.
TlsCredentials readTlsCredentials(const TlsFiles& files);

}  // namespace vrx
