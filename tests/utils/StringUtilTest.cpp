#include "utils/StringUtil.h"

#include <gtest/gtest.h>

namespace zelkor::tessel {
namespace {

TEST(StringUtilTest, TrimStrRemovesOnlyOuterRunsOfTheGivenChar) {
    EXPECT_EQ(StringUtil::TrimStr("//a/b//", '/'), "a/b");
    EXPECT_EQ(StringUtil::TrimStr(" /a ", '/'), " /a ");
    EXPECT_EQ(StringUtil::TrimStr("///", '/'), "");
    EXPECT_EQ(StringUtil::TrimStr("", '/'), "");
}

TEST(StringUtilTest, StartsWithAndEndsWith) {
    EXPECT_TRUE(StringUtil::StartsWith("log_2024", "log_"));
    EXPECT_FALSE(StringUtil::StartsWith("log_2024", "2024"));
    EXPECT_FALSE(StringUtil::StartsWith("log", "log_"));
    EXPECT_TRUE(StringUtil::StartsWith("log", ""));
    EXPECT_TRUE(StringUtil::EndsWith("a.zip", ".zip"));
    EXPECT_FALSE(StringUtil::EndsWith("a.zip", "a."));
    EXPECT_FALSE(StringUtil::EndsWith("zip", ".zip"));
    EXPECT_TRUE(StringUtil::EndsWith("zip", ""));
}

TEST(StringUtilTest, GetTailPathKeepsLastComponents) {
    const struct {
        const char* path;
        int count;
        const char* expected;
    } cases[] = {
            {"/a/b/d", 1, "d"},      {"/a/b/d", 2, "b/d"},    {"/a/b/d", 3, "a/b/d"},
            {"/a/b/d", 4, "/a/b/d"}, {"/a/b/d", 0, "/a/b/d"}, {"/a/b/", 1, ""},
            {"a/b", 2, "a/b"},
    };
    for (const auto& c : cases) {
        std::string path = c.path;
        StringUtil::getTailPath(path, c.count);
        EXPECT_EQ(path, c.expected) << c.path << " with " << c.count;
    }
}

}  // namespace
}  // namespace zelkor::tessel
