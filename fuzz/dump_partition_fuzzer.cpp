// The whole extraction of a minidump partition (a device without a
// blackbox) over arbitrary bytes: the last-log header, the newest dump and
// every stored one, with their sections.
#include "FuzzRoot.h"
#include "modules/BSPLogProcessor/Minidump.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::FuzzRoot& root = fuzz::FuzzRoot::Get();
    root.Put("/dev/block/by-name/minidump", data, size);
    Minidump::reset_minidump_state();
    if (Minidump::handle_mini_lastlog_header() == 1) Minidump::handle_minidump_partition(0, 0);
    Minidump::handle_stored_minidumps();
    return 0;
}
