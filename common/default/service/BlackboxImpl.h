// Access to the blackbox partition for other processes.
#pragma once

#include <aidl/vendor/zelkor/hardware/blackbox/BnBlackboxImpl.h>

namespace zelkor::tessel {

class BlackboxImpl : public ::aidl::vendor::zelkor::hardware::blackbox::BnBlackboxImpl {
  public:
    BlackboxImpl();

    ndk::ScopedAStatus dotFromExternal(const std::string& caller, const std::string& time,
                                       const std::string& content, int32_t* result) override;
    ndk::ScopedAStatus getStreamLog(const std::string& caller, int32_t type, int32_t slot,
                                    std::string* result) override;
    ndk::ScopedAStatus getStreamLogByPfd(const std::string& caller, int32_t type, int32_t slot,
                                         const ndk::ScopedFileDescriptor& fd) override;
    ndk::ScopedAStatus getRuntimeLog(const std::string& caller, int32_t flags,
                                     const ndk::ScopedFileDescriptor& fd) override;
    ndk::ScopedAStatus getHardwareInfo(const std::string& caller, std::string* result) override;
    ndk::ScopedAStatus getAllBlackboxConfig(const std::string& caller,
                                            std::string* result) override;
    ndk::ScopedAStatus getBlackboxConfig(const std::string& caller, const std::string& key,
                                         int32_t* result) override;
    ndk::ScopedAStatus setAllBlackboxConfig(const std::string& caller, const std::string& json,
                                            int32_t* result) override;
    ndk::ScopedAStatus setBlackboxConfig(const std::string& caller, const std::string& key,
                                         int32_t value, int32_t* result) override;
};

}  // namespace zelkor::tessel
