// Trust-zone log translation with "/vendor/etc/tzlog.dict".
#include <filesystem>

#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class TzLogDictTest : public MinidumpTest {
  protected:
    void Dict(const std::string& text) {
        std::filesystem::create_directories(Host("/vendor/etc"));
        std::ofstream(Host("/vendor/etc/tzlog.dict"), std::ios::binary) << text;
    }
    std::string Translate(const std::string& text) {
        const std::string out = Host("/data/vendor/diag/out");
        int fd = open(out.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        EXPECT_GE(fd, 0);
        translate_tzlog(fd, text.data(), text.size());
        close(fd);
        return ReadFile("/data/vendor/diag/out");
    }
};

TEST_F(TzLogDictTest, LinesAreExpandedWithTheDictionary) {
    Dict("42:MOD:started\n7:MOD:value %d of %d\n7:OTHER:never used\nno colon here\n"
         "9:only one\n5:BARE:\n3:M:%d|%d|%d tail\n");
    ASSERT_EQ(load_tzlog_dict(), 0);
    EXPECT_EQ(Translate("[12.3](42)\n"), "[12.3] MOD started\n");
    // The first entry of an id wins; no blank between module and format.
    EXPECT_EQ(Translate("[1](7 3 9)\n"), "[1] MODvalue 3 of 9\n");
    // A format that is only the newline: module, a blank, the newline.
    EXPECT_EQ(Translate("[2](5)\n"), "[2] BARE\n");
    // Fewer arguments than placeholders: the format stops after the last one,
    // whose final character gives way to the newline.
    EXPECT_EQ(Translate("[3](3 ab cd)\n"), "[3] Mab|cd\n");
    // More arguments than placeholders: the output ends with the last one
    // used, and its final character gives way to the newline.
    EXPECT_EQ(Translate("[4](7 1 2 3 4)\n"), "[4] MODvalue 1 of \n");
    // Unknown ids, with and without arguments, keep the whole line.
    EXPECT_EQ(Translate("[5](99)\n[6](99 1)\n"), "[5] [5](99\n[6] [6](99 1\n");
    // Ids from lines with fewer than two ':' are not in the dictionary.
    EXPECT_EQ(Translate("[7](9)\n[8](no colon here)\n"), "[7] [7](9\n[8] [8](no colon here\n");
}

TEST_F(TzLogDictTest, LinesWithoutMarksAreSkipped) {
    Dict("1:A:one\n");
    ASSERT_EQ(load_tzlog_dict(), 0);
    EXPECT_EQ(Translate("no brackets (1)\n[1] no paren\n[2](1\n[3](1)\n[4](1)"), "[3] A one\n");
    EXPECT_EQ(mLog.count(kTag, "The tzlog has no time id in this line."), 1);
    EXPECT_EQ(mLog.count(kTag, "The tzlog has no fatmat in this line."), 1);
    EXPECT_EQ(Translate(""), "");
}

TEST_F(TzLogDictTest, MissingDictionaryKeepsEveryLine) {
    EXPECT_EQ(load_tzlog_dict(), -1);
    EXPECT_EQ(Translate("[1](42)\n"), "[1] [1](42\n");
    // A dictionary installed later is read on the next explicit load only.
    Dict("42:MOD:started\n");
    ensure_tzlog_dict();
    EXPECT_EQ(Translate("[1](42)\n"), "[1] [1](42\n");
    clear_tzlog_dict();
    ensure_tzlog_dict();
    EXPECT_EQ(Translate("[1](42)\n"), "[1] MOD started\n");
    // An explicit load replaces what was loaded.
    Dict("42:NEW:meaning\n");
    ASSERT_EQ(load_tzlog_dict(), 0);
    EXPECT_EQ(Translate("[1](42)\n"), "[1] NEW meaning\n");
}

TEST_F(TzLogDictTest, LongLinesAreCutAtTheLineBuffer) {
    Dict("1:A:" + std::string(490, 'f') + "\n");
    ASSERT_EQ(load_tzlog_dict(), 0);
    std::string args;
    for (int i = 0; i < 1000; ++i) args += " 12345678";
    std::string out = Translate("[1](1" + args + ")\n");
    // No placeholder: the module's last letter gives way to the newline; and
    // an unknown id with a 9000-character line is cut to 5120 characters.
    EXPECT_EQ(out, "[1] \n");
    out = Translate("[1](2" + args + ")\n");
    EXPECT_EQ(out.size(), 5120u);
    EXPECT_EQ(out.back(), '\n');
}

}  // namespace
}  // namespace zelkor::tessel::testing
