#include "common/default/service/TesselImpl.h"

#include <unistd.h>

#include "common/default/service/NotImplemented.h"
#include "framework/ModuleManager.h"

namespace zelkor::tessel {

binder_status_t TesselImpl::dump(int fd, const char** args, uint32_t numArgs) {
    ModuleManager::dump(fd, args, numArgs);
    fsync(fd);
    return STATUS_OK;
}

ndk::ScopedAStatus TesselImpl::DirListFiles(const std::string&, std::vector<FileInfo>*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::EraseFileOrDirectory(const std::string&, const std::string&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselReadFile(const std::string&, const std::string&,
                                              std::string*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselWriteFile(const std::string&, const std::string&,
                                               const std::string&, int32_t, int8_t) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::IsExists(const std::string&, const std::string&, bool*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselCreateFolder(const std::string&, const std::string&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselReadBuffer(const std::string&, const std::string&,
                                                std::vector<int8_t>*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselWriteBuffer(const std::string&, const std::string&,
                                                 const std::vector<int8_t>&, int64_t) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::GetFileSize(const std::string&, const std::string&, int64_t*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselSetProp(const std::string&, const std::string&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::ReadFromFile(const Ashmem&, const std::string&, const std::string&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::WriteToFile(const Ashmem&, const std::string&, const std::string&,
                                           int64_t) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::GetPartitionSize(const std::string&, const std::string&, int64_t*) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::TesselCreateFolderMode(const std::string&, const std::string&,
                                                      int32_t) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::CopyFile(const std::string&, const std::string&) {
    return NotImplemented(__func__);
}
ndk::ScopedAStatus TesselImpl::DirIntgrFiles(const std::string&, std::vector<FileInfo>*) {
    return NotImplemented(__func__);
}

}  // namespace zelkor::tessel
