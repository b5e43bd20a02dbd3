// The text files one crash classification reads, each written literally by
// the test.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "minidump/MinidumpTestSupport.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {

using namespace Minidump;

// The minidump tests' root (its ReadFile, Exists, log capture), with text
// files written whole; this run took a new dump unless a test says otherwise.
class CrashTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        NewDump(true);
    }
    void Write(const std::string& devicePath, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Host(devicePath)).parent_path());
        std::ofstream out(Host(devicePath), std::ios::binary | std::ios::trunc);
        out << text;
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
    // The verdict once `devicePath` holds `text`.
    Verdict After(const std::string& devicePath, const std::string& text) const {
        Write(devicePath, text);
        return Parse();
    }
    // The crash's name and detail, as the history records them.
    static std::string Said(const Verdict& v) { return v.reason + ": " + v.detail; }
    static bool NoCrash(const Verdict& v) {
        return v.mainType == CRASH_MAIN_NONE && v.subType == CRASH_NONE && Said(v) == ": ";
    }
};

// The sub-type, with the name and the main type the type table gives it.
#define EXPECT_VERDICT(v, sub, text)                      \
    do {                                                  \
        EXPECT_EQ((v).subType, sub);                      \
        EXPECT_EQ((v).mainType, crash_main_type_of(sub)); \
        EXPECT_EQ((v).reason, crash_type_name(sub));      \
        EXPECT_EQ((v).detail, text);                      \
    } while (0)

}  // namespace zelkor::tessel::testing
