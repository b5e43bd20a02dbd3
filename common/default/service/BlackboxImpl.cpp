#include "common/default/service/BlackboxImpl.h"

#include <android-base/logging.h>

#include "common/default/service/NotImplemented.h"

namespace zelkor::tessel {

BlackboxImpl::BlackboxImpl() {
    LOG(INFO) << "BlackboxImpl: Ready!";
}

ndk::ScopedAStatus BlackboxImpl::dotFromExternal(const std::string&, const std::string&,
                                                 const std::string&, int32_t*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::getStreamLog(const std::string&, int32_t, int32_t, std::string*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::getStreamLogByPfd(const std::string&, int32_t, int32_t,
                                                   const ndk::ScopedFileDescriptor&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::getRuntimeLog(const std::string&, int32_t,
                                               const ndk::ScopedFileDescriptor&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::getHardwareInfo(const std::string&, std::string*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::getAllBlackboxConfig(const std::string&, std::string*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::getBlackboxConfig(const std::string&, const std::string&,
                                                   int32_t*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::setAllBlackboxConfig(const std::string&, const std::string&,
                                                      int32_t*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus BlackboxImpl::setBlackboxConfig(const std::string&, const std::string&, int32_t,
                                                   int32_t*) {
    return NotImplemented(__func__);
}

}  // namespace zelkor::tessel
