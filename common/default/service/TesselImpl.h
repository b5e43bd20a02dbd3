// Vendor file access for privileged system clients.
#pragma once

#include <aidl/vendor/zelkor/hardware/tessel/common/BnTesselImpl.h>

namespace zelkor::tessel {

using ::aidl::vendor::zelkor::hardware::tessel::common::Ashmem;
using ::aidl::vendor::zelkor::hardware::tessel::common::FileInfo;
using ::aidl::vendor::zelkor::hardware::tessel::common::IVCameraCallback;

class TesselImpl : public ::aidl::vendor::zelkor::hardware::tessel::common::BnTesselImpl {
  public:
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    ndk::ScopedAStatus DirListFiles(const std::string& path,
                                    std::vector<FileInfo>* result) override;
    ndk::ScopedAStatus EraseFileOrDirectory(const std::string& path,
                                            const std::string& fileName) override;
    ndk::ScopedAStatus TesselReadFile(const std::string& path, const std::string& fileName,
                                      std::string* result) override;
    ndk::ScopedAStatus TesselWriteFile(const std::string& path, const std::string& fileName,
                                       const std::string& data, int32_t mode,
                                       int8_t appendData) override;
    ndk::ScopedAStatus IsExists(const std::string& path, const std::string& fileName,
                                bool* result) override;
    ndk::ScopedAStatus TesselCreateFolder(const std::string& path,
                                          const std::string& folderName) override;
    ndk::ScopedAStatus TesselReadBuffer(const std::string& path, const std::string& fileName,
                                        std::vector<int8_t>* result) override;
    ndk::ScopedAStatus TesselWriteBuffer(const std::string& path, const std::string& fileName,
                                         const std::vector<int8_t>& buffer,
                                         int64_t length) override;
    ndk::ScopedAStatus OnFrameData(const std::vector<int8_t>& frame, int32_t length,
                                   bool* result) override;
    ndk::ScopedAStatus ConnectVirtualCamera(bool* result) override;
    ndk::ScopedAStatus SetVirtualCameraConfig(int32_t width, int32_t height, double fps,
                                              bool* result) override;
    ndk::ScopedAStatus DisconnectVirtualCamera(bool* result) override;
    ndk::ScopedAStatus RegisterVCameraCallback(
            const std::shared_ptr<IVCameraCallback>& callback) override;
    ndk::ScopedAStatus UnregisterVCameraCallback() override;
    ndk::ScopedAStatus GetFileSize(const std::string& path, const std::string& fileName,
                                   int64_t* result) override;
    ndk::ScopedAStatus TesselSetProp(const std::string& key, const std::string& value) override;
    ndk::ScopedAStatus ReadFromFile(const Ashmem& mem, const std::string& path,
                                    const std::string& fileName) override;
    ndk::ScopedAStatus WriteToFile(const Ashmem& mem, const std::string& path,
                                   const std::string& fileName, int64_t size) override;
    ndk::ScopedAStatus GetPartitionSize(const std::string& caller, const std::string& partitionName,
                                        int64_t* result) override;
    ndk::ScopedAStatus TesselCreateFolderMode(const std::string& path,
                                              const std::string& folderName, int32_t mode) override;
    ndk::ScopedAStatus CopyFile(const std::string& srcPath, const std::string& destPath) override;
    ndk::ScopedAStatus DirIntgrFiles(const std::string& path,
                                     std::vector<FileInfo>* result) override;
};

}  // namespace zelkor::tessel
