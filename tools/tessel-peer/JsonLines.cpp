#include "tools/tessel-peer/JsonLines.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>

#include "platform/Platform.h"
#include "utils/FileUtil.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel::peer {

bool JsonLines::append(const Json::Value& record) {
    std::string line;
    if (!JsonUtil::ConvertJsonToString(record, line)) return false;
    const std::string path = platform::DevicePath(mDevicePath);
    std::lock_guard<std::mutex> lock(mLock);
    if (!mFolderMade)
        mFolderMade = FileUtil::CreateDirectory(path.substr(0, path.rfind('/')), 0770);
    android::base::unique_fd fd(
            open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0660));
    return fd.ok() && android::base::WriteStringToFd(line, fd.get());
}

}  // namespace zelkor::tessel::peer
