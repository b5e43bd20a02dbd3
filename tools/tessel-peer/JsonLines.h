// Appends records as JSON lines to a file under the root, one write per line
// so that concurrent binder threads never interleave.
#pragma once

#include <json/json.h>

#include <mutex>
#include <string>

namespace zelkor::tessel::peer {

class JsonLines {
  public:
    explicit JsonLines(std::string devicePath) : mDevicePath(std::move(devicePath)) {}
    bool append(const Json::Value& record);

  private:
    std::string mDevicePath;
    std::mutex mLock;
    bool mFolderMade = false;  // the folder is made with the first line
};

}  // namespace zelkor::tessel::peer
