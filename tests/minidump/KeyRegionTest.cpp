// The trust zone's log-key regions gathered in "last_tzlog_key".
#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class KeyRegionTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        MakeImage(kMinidump, 0x1000);
        Put(kMinidump, 0x100, std::string("KEY\0\x01", 5));
        Put(kMinidump, 0x200, "IV");
        Put(kMinidump, 0x300, "MAC");
    }
    void Parse(const char* name, uint64_t offset, uint64_t size, uint32_t late) {
        int fd = OpenImage(kMinidump);
        ASSERT_GE(fd, 0);
        parse_log(fd, name, offset, size, late);
        close(fd);
    }
    const std::string kKeyFile = std::string(kDiag) + "/last_tzlog_key";
};

TEST_F(KeyRegionTest, KeyStartsTheFileAndTheOtherRegionsAppend) {
    std::ofstream(Host(kKeyFile)) << "left from an earlier dump\n";
    Parse("md_TZ_AES_KEY", 0x100, 5, 0);
    Parse("md_TZ_AES_IV", 0x200, 2, 0);
    Parse("md_TZ_HMAC", 0x300, 3, 0);
    EXPECT_EQ(ReadFile(kKeyFile), "tz log key region md_TZ_AES_KEY:\n" +
                                          std::string("KEY\0\x01", 5) +
                                          "tz log key region md_TZ_AES_IV:\nIV"
                                          "tz log key region md_TZ_HMAC:\nMAC");
    EXPECT_EQ(ModeOf(kKeyFile), 0644u);
    EXPECT_TRUE(mLog.contains(kTag, "creat file /data/vendor/diag/last_tzlog_key \n"));
    EXPECT_TRUE(
            mLog.contains(kTag, "open file /data/vendor/diag/last_tzlog_key, write continue \n"));
}

TEST_F(KeyRegionTest, EmptyRegionCleansTheFile) {
    Parse("md_encr_key_aes", 0x100, 3, 4);
    Parse("md_encr_key_iv", 0x200, 0, 4);
    EXPECT_EQ(ReadFile(kKeyFile + "_4"), "");
    EXPECT_EQ(ModeOf(kKeyFile + "_4"), 0644u);
    EXPECT_TRUE(mLog.contains(kTag, "no tz log key, clean /data/vendor/diag/last_tzlog_key_4 \n"));
    // Appending regions of other names, and one that starts a file from nothing.
    Parse("load.cmm", 0x300, 3, 4);
    Parse("md_MDMP_LOG", 0x200, 2, 4);
    EXPECT_EQ(ReadFile(kKeyFile + "_4"),
              "tz log key region load.cmm:\nMACtz log key region md_MDMP_LOG:\nIV");
    EXPECT_FALSE(Exists(kKeyFile));
}

}  // namespace
}  // namespace zelkor::tessel::testing
