// The fixture of end-to-end tests on one temporary root holding the daemon's
// manifest: the project's tools run to completion on it, and tesseld
// started on it. Tool output goes to a scratch folder outside the root.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "DaemonRoot.h"
#include "TempRoot.h"

namespace zelkor::tessel::testing {

// A tool run to completion: its exit status and output.
struct ToolRun {
    int status;
    std::string out, err;
};

inline Json::Value ParseJson(const std::string& text) {
    Json::Value value;
    std::istringstream in(text);
    std::string errors;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &errors))
            << errors << "\n"
            << text;
    return value;
}

// How often `part` occurs in `text`.
inline size_t Count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

class ToolRoot {
  public:
    static constexpr size_t npos = std::string::npos;

    ToolRoot() { InstallDaemonManifest(mRoot.path()); }

    std::string Host(const std::string& devicePath) const { return mRoot.path() + devicePath; }
    std::string Scratch(const std::string& name) const { return mScratch.path() + "/" + name; }
    std::string Read(const std::string& devicePath) const {
        return ReadWholeFile(Host(devicePath));
    }
    // `text` at `devicePath`, with the folders above it made.
    void Put(const std::string& devicePath, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Host(devicePath)).parent_path());
        std::ofstream(Host(devicePath), std::ios::binary) << text;
    }

    // Runs BinPath(args[0]) to completion, standard input from `input` when
    // one is given.
    ToolRun Run(std::vector<std::string> args, const std::string& input = "",
                std::vector<std::string> env = {}) {
        const std::string prefix = Scratch(args[0] + "." + std::to_string(++mRuns));
        std::string stdinPath;
        if (!input.empty()) {
            stdinPath = prefix + ".in";
            std::ofstream(stdinPath, std::ios::binary) << input;
        }
        Subprocess tool(std::move(args), prefix, std::move(env), stdinPath);
        const int status = tool.wait();
        return {status, tool.out(), tool.err()};
    }
    // tesselctl on this root.
    ToolRun Ctl(std::vector<std::string> args, const std::string& input = "") {
        args.insert(args.begin(), {"tesselctl", "--root", mRoot.path()});
        return Run(std::move(args), input);
    }
    // The output of a run expected to succeed.
    static std::string Out(const ToolRun& run) {
        EXPECT_EQ(run.status, 0) << run.err;
        return run.out;
    }

    // tesseld on this root, its output in "<root>/tesseld.*", waited for
    // until it has started.
    std::unique_ptr<Subprocess> StartDaemon() {
        auto daemon = std::make_unique<Subprocess>(
                std::vector<std::string>{"tesseld", "--root", mRoot.path()}, Host("/tesseld"));
        EXPECT_TRUE(WaitFor([&] { return daemon->err().find("Tessel is started!") != npos; }))
                << daemon->err();
        return daemon;
    }
    // Waits until `daemon` has logged `text`.
    static bool Logged(const Subprocess& daemon, const std::string& text) {
        return WaitFor([&] { return daemon.err().find(text) != npos; });
    }

    TempRoot mRoot, mScratch;
    int mRuns = 0;
};

class DaemonTest : public ::testing::Test, public ToolRoot {
  protected:
    using ToolRoot::Run;  // not the test's own
};

}  // namespace zelkor::tessel::testing
