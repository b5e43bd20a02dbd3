#include "common/default/service/TesselImpl.h"

#include <fcntl.h>
#include <unistd.h>

#include <cinttypes>

#include "common/default/service/TesselFiles.h"
#include "common/default/service/TesselStatus.h"
#include "framework/HalvexUtil.h"
#include "framework/ModuleManager.h"
#include "platform/ClientPath.h"
#include "platform/Properties.h"

namespace zelkor::tessel {

binder_status_t TesselImpl::dump(int fd, const char** args, uint32_t numArgs) {
    ModuleManager::dump(fd, args, numArgs);
    fsync(fd);
    return STATUS_OK;
}

ndk::ScopedAStatus TesselImpl::IsExists(const std::string& path, const std::string& fileName,
                                        bool* result) {
    *result = false;
    if (path.empty()) {
        TLOGE("path is NULL, return error");
        return TesselStatus(STATUS_INVALID_OPERATION);
    }
    std::string full;
    binder_status_t status = handlePath(path, fileName, &full);
    if (status != STATUS_OK) return TesselStatus(status);
    android::base::unique_fd node(platform::OpenClientPath(full, O_PATH));
    *result = node.ok();
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselImpl::GetFileSize(const std::string& path, const std::string& fileName,
                                           int64_t* result) {
    *result = 0;
    if (path.empty() || fileName.empty()) {
        TLOGE("parameter is invalid, return TESSEL_EINVAL");
        return TesselStatus(TESSEL_EINVAL);
    }
    std::string full;
    android::base::unique_fd fd;
    int64_t size;
    binder_status_t status = OpenSized(path, fileName, &full, &fd, &size);
    if (status != STATUS_OK) {
        TLOGE("handlePath return error, result=%d\n", status);
        return TesselStatus(status);
    }
    if (size < 0) {
        TLOGE("fs open failed, path=%s\n", full.c_str());
        return TesselStatus(TESSEL_NOENT);
    }
    *result = size;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselImpl::TesselSetProp(const std::string& key, const std::string& value) {
    if (key.empty() || value.empty()) {
        TLOGE("key or value is empty, return TESSEL_EINVAL\n");
        return TesselStatus(TESSEL_EINVAL);
    }
    // The property service's answer is logged, not returned: callers treat
    // the call as a request.
    if (!platform::SetProperty(key, value)) {
        TLOGE("set property %s=%s failed", key.c_str(), value.c_str());
    }
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselImpl::GetPartitionSize(const std::string& caller,
                                                const std::string& partitionName, int64_t* result) {
    *result = 0;
    std::shared_ptr<ITesselCore> core = HalvexUtil::GetTesselCore();
    if (core == nullptr) {
        TLOGE("call tessel core failed, tessel core service is null");
        return TesselStatus(STATUS_INVALID_OPERATION);
    }
    int64_t size = 0;
    if (!core->GetPartitionSize(caller, partitionName, &size).isOk()) {
        TLOGE("Couldn't getPartitionSize internal.");
        return TesselStatus(STATUS_INVALID_OPERATION);
    }
    TLOGD("%s GetPartitionSize:%" PRId64, caller.c_str(), size);
    *result = size;
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
