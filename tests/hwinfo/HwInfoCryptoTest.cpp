// The record encryption: base64 against the RFC 4648 vectors, RSA against
// the development private key.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "DevKey.h"
#include "TempRoot.h"
#include "modules/HardWareInfo/HwInfoCrypto.h"
#include "modules/HardWareInfo/hwInfoModule.h"

namespace zelkor::tessel::testing {
namespace {

std::string Encode(const std::string& bytes) {
    char* text = HwInfo::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    std::string out = text != nullptr ? text : "(null)";
    free(text);
    return out;
}

TEST(HwInfoCryptoTest, Base64IsTheStandardAlphabetWithPadding) {
    EXPECT_EQ(Encode(""), "");
    EXPECT_EQ(Encode("f"), "Zg==");
    EXPECT_EQ(Encode("fo"), "Zm8=");
    EXPECT_EQ(Encode("foo"), "Zm9v");
    EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(Encode(std::string("\xfb\xff\xbf", 3)), "+/+/");
    EXPECT_EQ(HwInfo::base64_encode(nullptr, -1), nullptr);
}

// The text as it went in, through the key pair.
std::string RoundTrip(const std::string& text, int* length) {
    unsigned char* cipher = nullptr;
    *length = HwInfo::rsa_pub_encrypt(text.c_str(), &cipher);
    if (*length < 0) return "(refused)";
    std::string plain = DecryptWithDevKey(std::string(reinterpret_cast<char*>(cipher), *length));
    free(cipher);
    return plain;
}

TEST(HwInfoCryptoTest, RecordsDecryptWithThePrivateKeyUpTo245Bytes) {
    int length = 0;
    EXPECT_EQ(RoundTrip("[DDR]: LPDDR5X\n", &length), "[DDR]: LPDDR5X\n");
    EXPECT_EQ(length, 256);
    const std::string longest(245, 'x');
    EXPECT_EQ(RoundTrip(longest, &length), longest);
    EXPECT_EQ(RoundTrip(longest + "x", &length), "(refused)");
    EXPECT_EQ(RoundTrip("", &length), "(refused)");
    unsigned char* cipher = nullptr;
    EXPECT_LT(HwInfo::rsa_pub_encrypt(nullptr, &cipher), 0);
    EXPECT_EQ(cipher, nullptr);
    // PKCS #1 v1.5 pads at random: the same text never encrypts the same twice.
    unsigned char *a = nullptr, *b = nullptr;
    ASSERT_EQ(HwInfo::rsa_pub_encrypt("same", &a), 256);
    ASSERT_EQ(HwInfo::rsa_pub_encrypt("same", &b), 256);
    EXPECT_NE(std::string(reinterpret_cast<char*>(a), 256),
              std::string(reinterpret_cast<char*>(b), 256));
    free(a);
    free(b);
}

// One record in the region: 344 characters of base64, a newline and a NUL,
// never past the partition's end.
TEST(HwInfoCryptoTest, ARecordIsWrittenWholeOrNotAtAll) {
    TempRoot root;
    const int fd = open((root.path() + "/region").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 1000), 0);
    EXPECT_EQ(HardWareInfoModule::WriteEncryptData(fd, "[SOC_ID]: 557\n"), 346);
    std::string record(346, '\0');
    ASSERT_EQ(pread(fd, record.data(), record.size(), 0), 346);
    EXPECT_EQ(record.substr(344), std::string("\n\0", 2));
    EXPECT_EQ(DecryptWithDevKey(DecodeBase64(record.substr(0, 344))), "[SOC_ID]: 557\n");

    ASSERT_EQ(lseek(fd, 1000 - 345, SEEK_SET), 1000 - 345);
    EXPECT_EQ(HardWareInfoModule::WriteEncryptData(fd, "[SOC_ID]: 557\n"), -1);
    EXPECT_EQ(lseek(fd, 0, SEEK_END), 1000) << "the partition never grows";
    EXPECT_EQ(HardWareInfoModule::WriteEncryptData(-1, "x"), -1);
    EXPECT_EQ(HardWareInfoModule::WriteEncryptData(fd, nullptr), -1);
    ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
    EXPECT_EQ(HardWareInfoModule::WriteEncryptData(fd, std::string(246, 'x').c_str()), -1);
    close(fd);
}

}  // namespace
}  // namespace zelkor::tessel::testing
