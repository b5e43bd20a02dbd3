// A throw-away host root for one test.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace zelkor::tessel::testing {

class TempRoot {
  public:
    TempRoot() {
        char tmpl[] = "/tmp/tessel-root.XXXXXX";
        char* dir = mkdtemp(tmpl);
        mPath = dir != nullptr ? dir : "";
    }
    ~TempRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};

}  // namespace zelkor::tessel::testing
