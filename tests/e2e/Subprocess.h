// Starts the project's real binaries for end-to-end tests and waits on them
// by condition, with a limit that only guards against a hang.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "WaitFor.h"

#if defined(TESSEL_GTEST)
#include <gtest/gtest.h>
#endif

namespace zelkor::tessel::testing {

inline std::string BinPath(const std::string& name) {
    return std::string(TESSEL_BIN_DIR) + "/" + name;
}

inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

class Subprocess {
  public:
    // Runs BinPath(args[0]) with the rest as arguments and this process's
    // environment plus `env` ("NAME=value"); stdout and stderr go to files
    // named after `outputPrefix`; stdin reads `stdinPath` when one is given.
    Subprocess(std::vector<std::string> args, const std::string& outputPrefix,
               std::vector<std::string> env = {}, const std::string& stdinPath = "")
        : mOut(outputPrefix + ".out"),
          mErr(outputPrefix + ".err"),
          mSanitizerLog(outputPrefix + ".sanitizer") {
        std::vector<char*> argv;
        std::string path = BinPath(args[0]);
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        // A sanitizer in the child writes its report where wait() and the
        // destructor look for it, with the options the child inherited.
        for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
            const char* inherited = getenv(name);
            env.push_back(std::string(name) + "=" + (inherited != nullptr ? inherited : "") +
                          (inherited != nullptr && *inherited != '\0' ? ":" : "") +
                          "log_path=" + mSanitizerLog);
        }
        std::vector<char*> envp;
        for (char** e = environ; *e != nullptr; ++e) {
            const std::string_view entry(*e);
            if (entry.rfind("ASAN_OPTIONS=", 0) == 0 || entry.rfind("TSAN_OPTIONS=", 0) == 0 ||
                entry.rfind("UBSAN_OPTIONS=", 0) == 0) {
                continue;
            }
            envp.push_back(*e);
        }
        for (auto& e : env) envp.push_back(e.data());
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (!stdinPath.empty()) {
            posix_spawn_file_actions_addopen(&actions, 0, stdinPath.c_str(), O_RDONLY, 0);
        }
        posix_spawn_file_actions_addopen(&actions, 1, mOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        posix_spawn_file_actions_addopen(&actions, 2, mErr.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        if (posix_spawn(&mPid, path.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
            mPid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Subprocess() {
        if (running()) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
#if defined(TESSEL_GTEST)
        // A sanitizer report from the child fails the test, whatever the
        // child's exit status said.
        const std::string report = sanitizerReport();
        if (!report.empty()) ADD_FAILURE() << "sanitizer report from " << mErr << ":\n" << report;
#endif
    }

    // What a sanitizer in the child reported, if anything.
    std::string sanitizerReport() const {
        return mPid > 0 ? ReadWholeFile(mSanitizerLog + "." + std::to_string(mPid)) : "";
    }
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    bool started() const {
        return mPid > 0;
    }
    pid_t pid() const {
        return mPid;
    }
    // Whether the process is still alive; an ended one is reaped.
    bool running() {
        return mPid > 0 && !reap();
    }

    // Exit status once the process ended, or -1 when it is still running at
    // the limit (it is then left running).
    int wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        if (mPid <= 0) return -1;
        WaitFor([this] { return reap(); }, limit);
        return mExited ? mStatus : -1;
    }
    void signal(int sig) {
        if (running()) kill(mPid, sig);
    }
    // Stops the process and returns once all its threads have stopped: after
    // kill() alone a thread may still run on for a moment.
    bool stop() {
        if (!running()) return false;
        kill(mPid, SIGSTOP);
        int status = 0;
        if (waitpid(mPid, &status, WUNTRACED) != mPid) return false;
        if (WIFSTOPPED(status)) return true;
        keepExitStatus(status);
        return false;
    }

    std::string out() const {
        return ReadWholeFile(mOut);
    }
    std::string err() const {
        return ReadWholeFile(mErr);
    }

  private:
    bool reap() {
        if (mExited) return true;
        int status = 0;
        if (waitpid(mPid, &status, WNOHANG) != mPid) return false;
        keepExitStatus(status);
        return true;
    }
    void keepExitStatus(int status) {
        mExited = true;
        mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::string mOut, mErr, mSanitizerLog;
    pid_t mPid = -1;
    bool mExited = false;
    int mStatus = -1;
};

}  // namespace zelkor::tessel::testing
