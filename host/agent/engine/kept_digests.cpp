#include "host/agent/engine/kept_digests.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <exception>
#include <list>
#include <memory>
#include <string>

namespace vrx {

namespace {

struct FreeMac {
    void operator()(EVP_MAC* mac) const { EVP_MAC_free(mac); }
    void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
};
using MacContext = std::unique_ptr<EVP_MAC_CTX, FreeMac>;

// An octet string that is wiped when it ends.
class Key {
public:
    Key(const void* octets, std::size_t size) : m_octets(static_cast<const char*>(octets), size) {}
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { OPENSSL_cleanse(m_octets.data(), m_octets.size()); }

    bool is(const void* octets, std::size_t size) const {
        return m_octets.size() == size && CRYPTO_memcmp(m_octets.data(), octets, size) == 0;
    }

private:
    std::string m_octets;
};

struct Digest {
    Digest(const EVP_MD* hash, const void* octets, std::size_t size) : algorithm(hash), key(octets, size) {
        const std::unique_ptr<EVP_MAC, FreeMac> mac(EVP_MAC_fetch(nullptr, OSSL_MAC_NAME_HMAC, nullptr));
        if (mac == nullptr) return;
        context.reset(EVP_MAC_CTX_new(mac.get()));
        std::string name = EVP_MD_get0_name(algorithm);
        const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, name.data(), 0),
                                         OSSL_PARAM_construct_end()};
        static const unsigned char nothing = 0;  // a null key would stand for the former one
        const auto* const first = size == 0 ? &nothing : static_cast<const unsigned char*>(octets);
        if (context != nullptr && EVP_MAC_init(context.get(), first, size, parameters) != 1) context.reset();
    }

    // False where the algorithm fails: then the digest is of no use any more.
    bool sign(const unsigned char* data, std::size_t size, unsigned char* out, std::size_t& outSize) {
        outSize = 0;
        return context != nullptr && EVP_MAC_init(context.get(), nullptr, 0, nullptr) == 1 &&
               EVP_MAC_update(context.get(), data, size) == 1 &&
               EVP_MAC_final(context.get(), out, &outSize, EVP_MAX_MD_SIZE) == 1;
    }

    const EVP_MD* algorithm;
    Key key;
    MacContext context;
};

thread_local std::list<Digest> t_digests;  // the one that was used last comes first

Digest& digestOf(const EVP_MD* algorithm, const void* key, std::size_t size) {
    const auto found = std::find_if(t_digests.begin(), t_digests.end(), [&](const Digest& digest) {
        return digest.algorithm == algorithm && digest.key.is(key, size);
    });
    if (found != t_digests.end()) {
        t_digests.splice(t_digests.begin(), t_digests, found);
    } else {
        t_digests.emplace_front(algorithm, key, size);
        if (t_digests.size() > MOST_KEPT_DIGESTS) t_digests.pop_back();
    }
    return t_digests.front();
}

unsigned char* sign(const EVP_MD* algorithm, const void* key, int keySize, const unsigned char* data, std::size_t size,
                    unsigned char* out, unsigned int* outSize) {
    if (outSize != nullptr) *outSize = 0;
    if (algorithm == nullptr || keySize < 0 || (key == nullptr && keySize > 0)) return nullptr;
    static thread_local unsigned char own[EVP_MAX_MD_SIZE];
    unsigned char* const to = out != nullptr ? out : own;
    std::size_t written = 0;
    if (!digestOf(algorithm, key, static_cast<std::size_t>(keySize)).sign(data, size, to, written)) {
        t_digests.pop_front();
        return nullptr;
    }
    if (outSize != nullptr) *outSize = static_cast<unsigned int>(written);
    return to;
}

}  // namespace

std::size_t keptDigests() {
    return t_digests.size();
}

void forgetDigests() {
    t_digests.clear();
}

}  // namespace vrx

extern "C" __attribute__((visibility("default"))) unsigned char* HMAC(const EVP_MD* evp_md, const void* key,
                                                                      int key_len, const unsigned char* data,
                                                                      std::size_t data_len, unsigned char* md,
                                                                      unsigned int* md_len) {
    try {
        return vrx::sign(evp_md, key, key_len, data, data_len, md, md_len);
    } catch (const std::exception&) {  // no memory: libraries are C, and take it for a failure
        if (md_len != nullptr) *md_len = 0;
        return nullptr;
    }
}
