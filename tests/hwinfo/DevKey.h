// Decryption with the repository's development private key, as a reader of
// field logs would do it with the product's.
#pragma once

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
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

// Standard base64 back to bytes (the records' own alphabet, '=' padding);
// empty when the text is not base64.
inline std::string DecodeBase64(const std::string& text) {
    std::string out(text.size() / 4 * 3, '\0');
    const int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                  reinterpret_cast<const unsigned char*>(text.data()),
                                  static_cast<int>(text.size()));
    const size_t padding = text.size() - std::min(text.size(), text.find_last_not_of('=') + 1);
    out.resize(n < 0 ? 0 : static_cast<size_t>(n) - padding);
    return out;
}

}  // namespace zelkor::tessel::testing
