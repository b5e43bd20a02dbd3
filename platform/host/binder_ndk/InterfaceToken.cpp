// Interface token: int32 strict-mode policy, int32 work-source uid, int32
// header tag, String16 descriptor (the order of the platform's Parcel).
#include "platform/host/binder_ndk/InterfaceToken.h"

#include "platform/host/binder_ndk/TransactionCodes.h"

namespace zelkor::tessel::binder {
namespace {

constexpr int32_t kNoStrictModePolicy = 0;
constexpr int32_t kUnsetWorkSource = -1;
constexpr int32_t kVendorHeader = static_cast<int32_t>(PackChars('V', 'N', 'D', 'R'));

}  // namespace

binder_status_t WriteInterfaceToken(AParcel* parcel, const std::string& descriptor) {
    binder_status_t status = parcel->write<int32_t>(kNoStrictModePolicy);
    if (status == STATUS_OK) status = parcel->write<int32_t>(kUnsetWorkSource);
    if (status == STATUS_OK) status = parcel->write<int32_t>(kVendorHeader);
    if (status == STATUS_OK) status = WriteString16(parcel, descriptor.data(), descriptor.size());
    return status;
}

bool EnforceInterfaceToken(const AParcel& parcel, const std::string& descriptor) {
    int32_t policy = 0;
    int32_t workSource = 0;
    int32_t header = 0;
    if (parcel.read(&policy) != STATUS_OK || parcel.read(&workSource) != STATUS_OK ||
        parcel.read(&header) != STATUS_OK || header != kVendorHeader) {
        return false;
    }
    std::string sent;
    bool isNull = false;
    return ReadString16(&parcel, &sent, &isNull) == STATUS_OK && !isNull && sent == descriptor;
}

}  // namespace zelkor::tessel::binder
