// The crash classification over arbitrary logs: the input is cut at "\n#\n"
// into the kernel log, the warm-reset boot-loader log, the UEFI log and the
// trust-zone log of a boot that took a new dump.
#include <string_view>

#include "FuzzRoot.h"
#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "platform/Properties.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kFiles[] = {Minidump::kLastKmsg, Minidump::kLastWarmresetXbllog,
                                         Minidump::kUefiLog0, Minidump::kLastTzlog};
    const fuzz::FuzzRoot& root = fuzz::FuzzRoot::Get();
    static const bool valid = platform::SetProperty(Minidump::kMinidumpValidProperty, "1");
    (void)valid;
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    for (const char* file : kFiles) {
        const size_t cut = rest.find("\n#\n");
        const std::string_view part = rest.substr(0, cut);
        root.Put(file, reinterpret_cast<const uint8_t*>(part.data()), part.size());
        rest = cut == std::string_view::npos ? std::string_view() : rest.substr(cut + 3);
    }
    Minidump::crash_main_type_enum mainType;
    Minidump::crash_type_enum subType;
    std::string reason;
    std::string detail;
    Minidump::crash_parse(mainType, subType, reason, detail);
    return 0;
}
