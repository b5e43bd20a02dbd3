// A throw-away host root for a fuzzer: the folders the code under test
// writes to, and a silent log.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "SilentLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel::fuzz {

class FuzzRoot {
  public:
    static FuzzRoot& Get() {
        static FuzzRoot* root = new FuzzRoot;  // lives as long as the fuzzer
        return *root;
    }

    // The host path of a device path.
    std::string Host(const std::string& devicePath) const { return mPath + devicePath; }

    // Writes `size` bytes as the file at `devicePath`, created afresh.
    void Put(const std::string& devicePath, const uint8_t* data, size_t size) const {
        const int fd =
                open(Host(devicePath).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) abort();
        for (size_t done = 0; done < size;) {
            const ssize_t n = write(fd, data + done, size - done);
            if (n <= 0) abort();
            done += static_cast<size_t>(n);
        }
        close(fd);
    }

  private:
    FuzzRoot() {
        // In memory where the machine has it: the code under test syncs what
        // it writes to partitions and histories, which on a disk costs a
        // flush for every input.
        std::string tmpl = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                           "/tessel-fuzz.XXXXXX";
        if (mkdtemp(tmpl.data()) == nullptr) abort();
        mPath = tmpl;
        // Gone when the run ends normally; a crash leaves it for a look.
        atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(Get().mPath, ignored);
        });
        for (const char* dir :
             {"/dev/block/by-name", "/dev/logfs", "/data/vendor/diag", "/sys/bootinfo"}) {
            std::filesystem::create_directories(mPath + dir);
        }
        platform::SetRoot(mPath);
        SilenceLog();
    }

    std::string mPath;
};

}  // namespace zelkor::tessel::fuzz
