// A host root holding the text files one crash classification reads, each
// written literally by the test.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "LogCapture.h"
#include "TempRoot.h"
#include "modules/BSPLogProcessor/CrashParse.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {

using namespace Minidump;

class CrashTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }

    std::string Host(const std::string& devicePath) const { return mRoot.path() + devicePath; }

    void Write(const std::string& devicePath, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Host(devicePath)).parent_path());
        std::ofstream out(Host(devicePath), std::ios::binary | std::ios::trunc);
        out << text;
    }
    std::string Read(const std::string& devicePath) const {
        std::ifstream in(Host(devicePath), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    bool Exists(const std::string& devicePath) const {
        return std::filesystem::exists(Host(devicePath));
    }
    // Whether this run took a new dump, the gate of the dump's own files.
    void NewDump(bool taken) const {
        ASSERT_TRUE(platform::SetProperty("vendor.minidump.is.valid", taken ? "1" : "0"));
    }

    struct Verdict {
        crash_main_type_enum mainType = CRASH_MAIN_NONE;
        crash_type_enum subType = CRASH_NONE;
        std::string reason;
        std::string detail;
    };
    static Verdict Parse(const std::string& knownReason = "") {
        Verdict v;
        v.reason = knownReason;
        crash_parse(v.mainType, v.subType, v.reason, v.detail);
        return v;
    }

    TempRoot mRoot;
    LogCapture mLog;
};

#define EXPECT_VERDICT(v, main, sub, name, text) \
    do {                                         \
        EXPECT_EQ((v).mainType, main);           \
        EXPECT_EQ((v).subType, sub);             \
        EXPECT_EQ((v).reason, name);             \
        EXPECT_EQ((v).detail, text);             \
    } while (0)

}  // namespace zelkor::tessel::testing
