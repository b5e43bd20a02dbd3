// tessel-image hwinfo FILE --key PRIVATE.pem [--json]: the hardware-info
// records of a blackbox image, decrypted with the product's private key and
// printed as the kernel node holds them. A record that does not decode or
// decrypt is reported by its position; the others are still shown.
#define OPENSSL_SUPPRESS_DEPRECATED

#include <fcntl.h>
#include <json/json.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

#include "modules/blackbox/BlackBoxIo.h"
#include "tools/tessel-image/Commands.h"
#include "tools/tessel-image/HwinfoRegion.h"
#include "tools/tessel-image/ImageFile.h"

namespace zelkor::tessel::image {
namespace {

struct RsaFree {
    void operator()(RSA* rsa) const { RSA_free(rsa); }
};
using RsaKey = std::unique_ptr<RSA, RsaFree>;

RsaKey LoadPrivateKey(const std::string& path) {
    std::ifstream in(path);
    const std::string pem((std::istreambuf_iterator<char>(in)), {});
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    RsaKey key(bio == nullptr ? nullptr
                              : PEM_read_bio_RSAPrivateKey(bio, nullptr, nullptr, nullptr));
    BIO_free_all(bio);
    return key;
}

// The record's text, or why there is none.
bool Decrypt(RSA* key, const std::string& record, std::string* text, std::string* error) {
    std::string cipher;
    if (!DecodeBase64(record, &cipher)) {
        *error = "not base64";
        return false;
    }
    if (cipher.size() != static_cast<size_t>(RSA_size(key))) {
        *error = "cipher of " + std::to_string(cipher.size()) + " bytes, the key takes " +
                 std::to_string(RSA_size(key));
        return false;
    }
    text->assign(cipher.size(), '\0');
    const int n = RSA_private_decrypt(
            static_cast<int>(cipher.size()), reinterpret_cast<const unsigned char*>(cipher.data()),
            reinterpret_cast<unsigned char*>(text->data()), key, RSA_PKCS1_PADDING);
    if (n < 0) {
        *error = "does not decrypt with this key";
        return false;
    }
    text->resize(static_cast<size_t>(n));
    return true;
}

}  // namespace

int RunHwinfo(const Args& args) {
    std::string file, keyPath;
    bool json = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--json") {
            json = true;
        } else if (args[i] == "--key" && i + 1 < args.size()) {
            keyPath = args[++i];
        } else if (args[i].rfind("--", 0) == 0 || !file.empty()) {
            fprintf(stderr, "tessel-image hwinfo: unexpected argument '%s'\n", args[i].c_str());
            return kExitUsage;
        } else {
            file = args[i];
        }
    }
    if (file.empty() || keyPath.empty()) return kExitUsage;
    RsaKey key = LoadPrivateKey(keyPath);
    if (key == nullptr) {
        fprintf(stderr, "tessel-image hwinfo: %s: not an RSA private key in PEM form\n",
                keyPath.c_str());
        return kExitFailure;
    }
    std::string error;
    const int fd = OpenImageFile(file, O_RDONLY, &error);
    if (fd < 0) {
        fprintf(stderr, "tessel-image hwinfo: %s\n", error.c_str());
        return kExitFailure;
    }
    const int64_t size = blackbox::partition_size(fd);
    const ImageFile image(fd, size < 0 ? 0 : static_cast<uint64_t>(size));
    const uint64_t offset = HwinfoRegionOffset(fd);
    const std::vector<HwinfoRecord> records = ReadHwinfoRecords(image, offset);
    close(fd);

    Json::Value out(Json::objectValue);
    out["offset"] = Json::UInt64(offset);
    out["records"] = Json::Value(Json::arrayValue);
    int failures = 0;
    for (size_t i = 0; i < records.size(); ++i) {
        std::string text, why;
        Json::Value entry(Json::objectValue);
        entry["index"] = Json::UInt64(i);
        entry["offset"] = Json::UInt64(records[i].offset);
        if (Decrypt(key.get(), records[i].text, &text, &why)) {
            entry["text"] = text;
            if (!json) std::cout << text;
        } else {
            ++failures;
            entry["error"] = why;
            if (!json) {
                fprintf(stderr, "record %zu at 0x%llx: %s\n", i,
                        static_cast<unsigned long long>(records[i].offset), why.c_str());
            }
        }
        out["records"].append(entry);
    }
    if (json) std::cout << out.toStyledString();
    return failures == 0 ? kExitOk : kExitFailure;
}

}  // namespace zelkor::tessel::image
