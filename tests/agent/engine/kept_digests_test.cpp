#include "host/agent/engine/kept_digests.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

using ByteString = std::basic_string<unsigned char>;

ByteString signedBy(const EVP_MD* algorithm, const ByteString& key, const ByteString& data) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (HMAC(algorithm, key.data(), static_cast<int>(key.size()), data.data(), data.size(), out, &size) != out)
        return {};
    return {out, size};
}

// As libcrypto's function does it.
ByteString afresh(const EVP_MD* algorithm, const ByteString& key, const ByteString& data) {
    unsigned char out[EVP_MAX_MD_SIZE];
    std::size_t size = 0;
    EVP_Q_mac(nullptr, "HMAC", nullptr, EVP_MD_get0_name(algorithm), nullptr, key.data(), key.size(), data.data(),
              data.size(), out, sizeof out, &size);
    return {out, size};
}

ByteString chanceOctets(std::mt19937& chance, std::size_t most) {
    ByteString octets(chance() % (most + 1), 0);
    for (unsigned char& octet : octets) octet = static_cast<unsigned char>(chance());
    return octets;
}

// On a thread of its own, which begins without digests.
template <typename Test>
void apart(const Test& test) {
    std::thread(test).join();
}

TEST(KeptDigests, GiveWhatThePublishedExampleHas) {  // RFC 4231, 4.3
    const ByteString key{'J', 'e', 'f', 'e'};
    const std::string text = "what do ya want for nothing?";
    const ByteString expected{0x5b, 0xdc, 0xc1, 0x46, 0xbf, 0x60, 0x75, 0x4e, 0x6a, 0x04, 0x24,
                              0x26, 0x08, 0x95, 0x75, 0xc7, 0x5a, 0x00, 0x3f, 0x08, 0x9d, 0x27,
                              0x39, 0x83, 0x9d, 0xec, 0x58, 0xb9, 0x64, 0xec, 0x38, 0x43};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(signedBy(EVP_sha256(), key, ByteString(text.begin(), text.end())), expected);
}

TEST(KeptDigests, EqualThoseThatAreMadeAfresh) {
    apart([] {
        std::mt19937 chance(1);
        const EVP_MD* const algorithms[] = {EVP_md5(),    EVP_sha1(),   EVP_sha224(),
                                            EVP_sha256(), EVP_sha384(), EVP_sha512()};
        std::vector<ByteString> keys;
        for (int i = 0; i < 30; ++i) keys.push_back(chanceOctets(chance, 200));
        for (int i = 0; i < 3000; ++i) {
            const EVP_MD* const algorithm = algorithms[chance() % std::size(algorithms)];
            const ByteString& key = keys[chance() % keys.size()];
            const ByteString data = chanceOctets(chance, 300);
            ASSERT_EQ(signedBy(algorithm, key, data), afresh(algorithm, key, data));
        }
        EXPECT_EQ(keptDigests(), MOST_KEPT_DIGESTS);  // of 180 pairs
    });
}

TEST(KeptDigests, AreThoseOfTheLibrarysMessages) {
    apart([] {
        const ByteString key(32, 7);
        const ByteString data(100, 9);
        ByteString out(64, 0);
        for (int i = 0; i < 5; ++i) {
            std::size_t size = out.size();
            ASSERT_EQ(sc_generate_keyed_hash(usmHMAC192SHA256AuthProtocol, OID_LENGTH(usmHMAC192SHA256AuthProtocol),
                                             key.data(), static_cast<unsigned int>(key.size()), data.data(),
                                             static_cast<unsigned int>(data.size()), out.data(), &size),
                      SNMPERR_SUCCESS);
            EXPECT_EQ(out.substr(0, 24), afresh(EVP_sha256(), key, data).substr(0, 24));
        }
        EXPECT_EQ(keptDigests(), 1U);
        forgetDigests();
        EXPECT_EQ(keptDigests(), 0U);
    });
}

TEST(KeptDigests, AFaultIsSaidAndKeepsNothing) {
    apart([] {
        unsigned char out[EVP_MAX_MD_SIZE] = {};
        unsigned int size = 9;
        EXPECT_EQ(HMAC(nullptr, "key", 3, out, 0, out, &size), nullptr);
        EXPECT_EQ(HMAC(EVP_sha256(), nullptr, 3, out, 0, out, &size), nullptr);
        EXPECT_EQ(HMAC(EVP_sha256(), "key", -1, out, 0, out, &size), nullptr);
        EXPECT_EQ(size, 0U);
        EXPECT_EQ(keptDigests(), 0U);
        EXPECT_NE(HMAC(EVP_sha256(), "key", 3, nullptr, 0, nullptr, nullptr), nullptr);  // a place of its own
    });
}

}  // namespace

}  // namespace vrx
