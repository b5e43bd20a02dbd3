// Decryption with the repository's development private key, as a reader of
// field logs would do it with the product's.
#pragma once

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstring>
#include <fstream>
#include <string>

namespace zelkor::tessel::testing {

// The plain text of one cipher block; empty when it does not decrypt.
inline std::string DecryptWithDevKey(const std::string& cipher) {
    std::ifstream in(std::string(TESSEL_SOURCE_DIR) + "/keys/hwinfo_dev_ONLY_private.pem");
    const std::string pem((std::istreambuf_iterator<char>(in)), {});
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    RSA* rsa = PEM_read_bio_RSAPrivateKey(bio, nullptr, nullptr, nullptr);
    std::string plain(256, '\0');
    int n = rsa == nullptr
                    ? -1
                    : RSA_private_decrypt(static_cast<int>(cipher.size()),
                                          reinterpret_cast<const unsigned char*>(cipher.data()),
                                          reinterpret_cast<unsigned char*>(plain.data()), rsa,
                                          RSA_PKCS1_PADDING);
    RSA_free(rsa);
    BIO_free_all(bio);
    plain.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return plain;
}

// Standard base64 back to bytes (the records' own alphabet, '=' padding).
inline std::string DecodeBase64(const std::string& text) {
    static const char kAlphabet[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    unsigned value = 0;
    int bits = 0;
    for (char c : text) {
        const char* at = strchr(kAlphabet, c);
        if (c == '=' || c == '\0' || at == nullptr) break;
        value = (value << 6) | static_cast<unsigned>(at - kAlphabet);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((value >> bits) & 0xff);
        }
    }
    return out;
}

}  // namespace zelkor::tessel::testing
