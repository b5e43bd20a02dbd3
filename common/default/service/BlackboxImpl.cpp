#include "common/default/service/BlackboxImpl.h"

#include <android-base/logging.h>

#include "common/default/service/BlackboxPartition.h"

namespace zelkor::tessel {

BlackboxImpl::BlackboxImpl() {
    LOG(INFO) << "BlackboxImpl: Ready!";
}

ndk::ScopedAStatus BlackboxImpl::dotFromExternal(const std::string& caller, const std::string& time,
                                                 const std::string& content, int32_t* result) {
    *result = dot_from_external(caller, time, content);
    // The routine answers with its header write (140) after a good write, so
    // callers see the unknown-error status then too and look for the record
    // itself in the partition.
    return *result == 0 ? ndk::ScopedAStatus::ok()
                        : ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_ERROR);
}

}  // namespace zelkor::tessel
