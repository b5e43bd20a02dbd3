// The host binder's parcel reader over arbitrary bytes: the first bytes pick
// the reads, the rest is the parcel's data as a peer would send it.
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_status.h>

#include <optional>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    AParcel* parcel = AParcel_create();
    if (AParcel_unmarshal(parcel, data + 4, size - 4) == STATUS_OK) {
        AParcel_setDataPosition(parcel, 0);
        for (size_t op = 0; op < 16; ++op) {
            const uint8_t kind = data[op % 4] >> (op / 4 * 2) & 3;
            switch ((kind + op) % 8) {
                case 0: {
                    int32_t value;
                    AParcel_readInt32(parcel, &value);
                    break;
                }
                case 1: {
                    std::string text;
                    ndk::AParcel_readString(parcel, &text);
                    break;
                }
                case 2: {
                    std::vector<int8_t> bytes;
                    ndk::AParcel_readVector(parcel, &bytes);
                    break;
                }
                case 3: {
                    std::optional<std::vector<std::optional<std::string>>> texts;
                    ndk::AParcel_readVector(parcel, &texts);
                    break;
                }
                case 4: {
                    std::vector<int64_t> longs;
                    ndk::AParcel_readVector(parcel, &longs);
                    break;
                }
                case 5: {
                    AStatus* status = nullptr;
                    if (AParcel_readStatusHeader(parcel, &status) == STATUS_OK) {
                        AStatus_delete(status);
                    }
                    break;
                }
                case 6: {
                    std::vector<bool> flags;
                    ndk::AParcel_readVector(parcel, &flags);
                    break;
                }
                default: {
                    ndk::SpAIBinder binder;
                    ndk::AParcel_readNullableStrongBinder(parcel, &binder);
                    break;
                }
            }
        }
    }
    AParcel_delete(parcel);
    return 0;
}
