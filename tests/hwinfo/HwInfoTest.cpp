// The hardware-info module's records: where its values come from (lines of
// kernel files, properties, the item table), and their encryption (base64
// against the RFC 4648 vectors, RSA against the development private key).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "DevKey.h"
#include "LogCapture.h"
#include "TempRoot.h"
#include "modules/HardWareInfo/HwInfoCrypto.h"
#include "modules/HardWareInfo/hwInfoModule.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {
namespace {

class HwInfoReadTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }
    void Put(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(
                std::filesystem::path(mRoot.path() + path).parent_path());
        std::ofstream(mRoot.path() + path) << text;
    }
    TempRoot mRoot;
    HardWareInfoModule mModule;
};

// Items are found by their exact key and read from their line or property.
TEST_F(HwInfoReadTest, FileItemsTakeTheirLineAndPropertyItemsTheirValue) {
    LogCapture log;
    const auto valueOf = [&](const char* key) {
        return mModule.ReadInfo(mModule.FindInfoByKey(key));
    };
    Put("/proc/mv", "LPDDR5X 12GB\n");
    EXPECT_EQ(valueOf("DDR"), "LPDDR5X 12GB");
    EXPECT_EQ(valueOf("ddr"), std::nullopt);
    EXPECT_EQ(valueOf(""), std::nullopt);
    // One line: the second is missing, and one past the end is no "invalid
    // index" yet.
    EXPECT_EQ(valueOf("UFS"), std::nullopt);
    EXPECT_EQ(log.count("Halvex-HardWareInfo", "line index is invalid"), 0);
    EXPECT_EQ(log.count("Halvex-HardWareInfo", "HWInfo Map info is invalid!"), 1);
    EXPECT_EQ(mModule.ReadInfo(InfoItem{std::string("/proc/mv"), std::nullopt, 3, 0}),
              std::nullopt);
    EXPECT_TRUE(log.contains("Halvex-HardWareInfo",
                             "[ReadInfo] line index is invalid, max line index is 2"));
    Put("/proc/mv", "\nUFS 4.0\n");
    EXPECT_EQ(valueOf("DDR"), "") << "an empty line is a value";
    EXPECT_EQ(valueOf("UFS"), "UFS 4.0");
    EXPECT_EQ(valueOf("SOC_ID"), std::nullopt) << "no file";
    // Only the head of a source file is read: a line past it is not there.
    Put("/proc/mv", "DDR\n" + std::string(70 * 1024, 'x') + "\nUFS\n");
    EXPECT_EQ(valueOf("DDR"), "DDR");
    EXPECT_EQ(valueOf("UFS")->size(), 64u * 1024 - 4);
    EXPECT_TRUE(log.contains("Halvex-HardWareInfo", "[ReadInfo] ReadInfo failed!!"));

    EXPECT_EQ(valueOf("NFC"), std::nullopt);
    ASSERT_TRUE(platform::SetProperty("ro.vendor.se.chip.model", "SN220"));
    EXPECT_EQ(valueOf("NFC"), "SN220");
    EXPECT_EQ(mModule.ReadInfo(std::nullopt), std::nullopt);
    EXPECT_EQ(mModule.ReadInfo(InfoItem{}), std::nullopt);
    EXPECT_EQ(mModule.FindInfoByKey("CAMERA_REARMAIN")->waitMs, 1000);
    EXPECT_EQ(mModule.FindInfoByKey("CAMERA_REARTELE")->waitMs, 100);
}

std::string Encode(const std::string& bytes) {
    char* text = HwInfo::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    std::string out = text != nullptr ? text : "(null)";
    free(text);
    return out;
}

TEST(HwInfoCryptoTest, Base64IsTheStandardAlphabetWithPadding) {
    const std::pair<std::string, const char*> cases[] = {
            {"", ""},        {"f", "Zg=="},          {"fo", "Zm8="},
            {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xfb\xff\xbf", "+/+/"}};
    for (const auto& [bytes, text] : cases) EXPECT_EQ(Encode(bytes), text) << text;
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
