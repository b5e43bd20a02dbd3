// BoringSSL on the device keeps the RSA_* calls as its current interface;
// OpenSSL 3 on a host marks them deprecated but keeps them.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "modules/HardWareInfo/HwInfoCrypto.h"

#include <android/log.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdlib>
#include <cstring>

#include "HwInfoKey.h"

namespace zelkor::tessel::HwInfo {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void LogError(const char* text) {
    __android_log_write(ANDROID_LOG_ERROR, nullptr, text);
}

}  // namespace

int rsa_pub_encrypt(const char* text, unsigned char** out) {
    BIO* bio = BIO_new_mem_buf(kHwInfoPublicKey, -1);
    if (bio == nullptr) {
        LogError("BIO_new_mem_buf failed!\n");
        return -1;
    }
    RSA* rsa = PEM_read_bio_RSA_PUBKEY(bio, nullptr, nullptr, nullptr);
    int result = -1;
    if (rsa == nullptr) {
        LogError("PEM_read_bio_RSA_PUBKEY failed!\n");
    } else if (text == nullptr || out == nullptr) {
        LogError("input elems error,please check them!\n");
    } else if (text[0] == '\0') {
        LogError("input str len is zero!\n");
    } else {
        const int size = RSA_size(rsa);
        auto* cipher = static_cast<unsigned char*>(malloc(static_cast<size_t>(size) + 2));
        if (cipher != nullptr) {
            result = RSA_public_encrypt(static_cast<int>(strlen(text)),
                                        reinterpret_cast<const unsigned char*>(text), cipher, rsa,
                                        RSA_PKCS1_PADDING);
            if (result < 0) {
                LogError("Got error on enc/dec!\n");
                free(cipher);
            } else {
                *out = cipher;
            }
        }
    }
    RSA_free(rsa);
    BIO_free_all(bio);
    return result;
}

char* base64_encode(const unsigned char* bytes, int n) {
    if (n < 0 || (n > 0 && bytes == nullptr)) return nullptr;
    const size_t groups = (static_cast<size_t>(n) + 2) / 3;
    char* text = static_cast<char*>(malloc(4 * groups + 1));
    if (text == nullptr) return nullptr;
    char* at = text;
    for (size_t i = 0; i < static_cast<size_t>(n); i += 3) {
        const size_t left = static_cast<size_t>(n) - i;
        const uint32_t group = (uint32_t{bytes[i]} << 16) |
                               (left > 1 ? uint32_t{bytes[i + 1]} << 8 : 0) |
                               (left > 2 ? uint32_t{bytes[i + 2]} : 0);
        *at++ = kAlphabet[(group >> 18) & 63];
        *at++ = kAlphabet[(group >> 12) & 63];
        *at++ = left > 1 ? kAlphabet[(group >> 6) & 63] : '=';
        *at++ = left > 2 ? kAlphabet[group & 63] : '=';
    }
    *at = '\0';
    return text;
}

}  // namespace zelkor::tessel::HwInfo
