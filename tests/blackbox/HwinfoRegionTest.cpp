// The offline reader's view of the hardware-info region: where records begin
// and end, and base64 read strictly.
#include <gtest/gtest.h>

#include "TempRoot.h"
#include "TestImage.h"
#include "tools/tessel-image/HwinfoRegion.h"

namespace zelkor::tessel::testing {
namespace {

using image::DecodeBase64;

TEST(HwinfoRegionTest, Base64IsReadStrictly) {
    std::string bytes;
    for (const auto& [text, decoded] :
         std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                          {"Zg==", "f"},
                                                          {"Zm8=", "fo"},
                                                          {"Zm9v", "foo"},
                                                          {"+/+/", "\xfb\xff\xbf"}}) {
        EXPECT_TRUE(DecodeBase64(text, &bytes)) << text;
        EXPECT_EQ(bytes, decoded) << text;
    }
    for (const char* bad : {"Zg=", "Z=g=", "Zg=a", "Zm9v=", "Zg==Zg==", "Zm9*", "Zm\n9v", "===="}) {
        EXPECT_FALSE(DecodeBase64(bad, &bytes)) << bad;
    }
}

TEST(HwinfoRegionTest, RecordsRunFromTheOffsetToTheFirstEmptyPlace) {
    TempRoot root;
    TestImage file(root.path() + "/image", 4096);
    const std::string a(344, 'A'), b(344, 'B');
    file.PutBytes(100, a + std::string("\n\0", 2) + b + std::string("\n\0", 2));
    file.PutBytes(100 + 2 * 346 + 400, "not reached");
    const image::ImageFile view(file.fd(), file.size());
    std::vector<image::HwinfoRecord> records = image::ReadHwinfoRecords(view, 100);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].offset, 100u);
    EXPECT_EQ(records[0].text, a);
    EXPECT_EQ(records[1].offset, 446u);
    EXPECT_EQ(records[1].text, b);
    // A record cut off by the end of the image counts as far as it goes.
    file.PutBytes(4096 - 10, "CCCCCCCCCC");
    records = image::ReadHwinfoRecords(view, 4096 - 10);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "CCCCCCCCCC");
    EXPECT_TRUE(image::ReadHwinfoRecords(view, 4096).empty());
    EXPECT_EQ(image::ReadHwinfoRecords(view, 100, 1).size(), 1u) << "the limit";
}

}  // namespace
}  // namespace zelkor::tessel::testing
