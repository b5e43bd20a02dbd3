// The interface token that starts every user transaction, so that a call
// meant for one interface is never run by an object of another.
#pragma once

#include <string>

#include "platform/host/binder_ndk/Parcel.h"

namespace zelkor::tessel::binder {

binder_status_t WriteInterfaceToken(AParcel* parcel, const std::string& descriptor);

// Reads the token and compares its descriptor; false on mismatch or garbage.
bool EnforceInterfaceToken(const AParcel& parcel, const std::string& descriptor);

}  // namespace zelkor::tessel::binder
