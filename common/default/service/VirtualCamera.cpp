// The virtual-camera entry points of the file-system service. The handset's
// virtual camera is served elsewhere; these keep the interface whole and
// answer with an OK status without doing anything. Their boolean results say
// false ("nothing was done"): an out value is always written, never left as
// whatever the stub's reply variable held.
#include "common/default/service/TesselImpl.h"

namespace zelkor::tessel {

namespace {

ndk::ScopedAStatus NothingDone(bool* result) {
    *result = false;
    return ndk::ScopedAStatus::ok();
}

}  // namespace

ndk::ScopedAStatus TesselImpl::OnFrameData(const std::vector<int8_t>&, int32_t, bool* result) {
    return NothingDone(result);
}
ndk::ScopedAStatus TesselImpl::ConnectVirtualCamera(bool* result) {
    return NothingDone(result);
}
ndk::ScopedAStatus TesselImpl::SetVirtualCameraConfig(int32_t, int32_t, double, bool* result) {
    return NothingDone(result);
}
ndk::ScopedAStatus TesselImpl::DisconnectVirtualCamera(bool* result) {
    return NothingDone(result);
}
ndk::ScopedAStatus TesselImpl::RegisterVCameraCallback(const std::shared_ptr<IVCameraCallback>&) {
    return ndk::ScopedAStatus::ok();
}
ndk::ScopedAStatus TesselImpl::UnregisterVCameraCallback() {
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
