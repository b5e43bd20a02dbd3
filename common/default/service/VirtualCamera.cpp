// The virtual-camera entry points of the file-system service. The handset's
// virtual camera is served elsewhere; these keep the interface whole and
// answer success without doing anything.
#include "common/default/service/TesselImpl.h"

namespace zelkor::tessel {

ndk::ScopedAStatus TesselImpl::OnFrameData(const std::vector<int8_t>&, int32_t, bool*) {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus TesselImpl::ConnectVirtualCamera(bool*) {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus TesselImpl::SetVirtualCameraConfig(int32_t, int32_t, double, bool*) {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus TesselImpl::DisconnectVirtualCamera(bool*) {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus TesselImpl::RegisterVCameraCallback(const std::shared_ptr<IVCameraCallback>&) {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus TesselImpl::UnregisterVCameraCallback() {
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
