#include "host/agent/settings/tls_credentials.h"

#include <gnutls/gnutls.h>

#include <memory>
#include <optional>
#include <stdexcept>

#include "host/base/whole_file.h"

namespace vrx {

namespace {

using Fault = std::invalid_argument;

std::string contentOf(const std::string& path) {
    constexpr std::size_t LONGEST = std::size_t{1} << 20U;
    try {
        std::optional<std::string> content = readWholeFile(path, LONGEST);
        if (!content) throw Fault(path + ": there is no such file");
        return *content;
    } catch (const WholeFileError& error) {
        throw Fault(error.what());
    }
}

gnutls_datum_t datum(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), static_cast<unsigned int>(text.size())};
}

}  // namespace

TlsCredentials readTlsCredentials(const TlsFiles& files) {
    TlsCredentials read{contentOf(files.certificate), contentOf(files.key), contentOf(files.clients)};
    gnutls_certificate_credentials_t made = nullptr;
    if (gnutls_certificate_allocate_credentials(&made) != GNUTLS_E_SUCCESS) throw std::bad_alloc();
    const std::unique_ptr<gnutls_certificate_credentials_st, decltype(&gnutls_certificate_free_credentials)>
        credentials(made, gnutls_certificate_free_credentials);
    const gnutls_datum_t certificate = datum(read.certificate);
    const gnutls_datum_t key = datum(read.key);
    const gnutls_datum_t clients = datum(read.clients);
    const int withKey = gnutls_certificate_set_x509_key_mem(made, &certificate, &key, GNUTLS_X509_FMT_PEM);
    if (withKey < 0) {
        throw Fault(files.certificate + " and " + files.key + ": " + gnutls_strerror(withKey));
    }
    const int authorities = gnutls_certificate_set_x509_trust_mem(made, &clients, GNUTLS_X509_FMT_PEM);
    if (authorities < 0) throw Fault(files.clients + ": " + gnutls_strerror(authorities));
    if (authorities == 0) throw Fault(files.clients + ": has no certificate");
    return read;
}

}  // namespace vrx
