// The internal channel's JSON form of an intent, as a peer sends it: parsed
// into an intent and written back.
#include <string>

#include "SilentLog.h"
#include "framework/InternalBroadcastManager.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string json(reinterpret_cast<const char*>(data), size);
    Intent intent = InternalBroadcastManager::jsonStrToIntent("zelkor.fuzz", json);
    (void)InternalBroadcastManager::intentToJsonStr(intent);
    return 0;
}
