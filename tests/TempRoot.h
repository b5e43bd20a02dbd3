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
    // A binder thread of the test process may still be making the service
    // folder inside the root while it goes (a lookup that was waiting when
    // the test ended): the root is then not empty when its own turn comes, so
    // removal is tried again until the root is gone. Once the root folder
    // itself is removed nothing can be made inside it any more.
    ~TempRoot() {
        std::error_code error;
        for (int attempt = 0; attempt < 10 && std::filesystem::exists(mPath, error); ++attempt) {
            std::filesystem::remove_all(mPath, error);
        }
    }
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    const std::string& path() const { return mPath; }

  private:
    std::string mPath;
};

}  // namespace zelkor::tessel::testing
