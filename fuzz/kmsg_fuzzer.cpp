// The kernel log reader of the boot-log copy: lines cut from arbitrary
// reads, each parsed as a /dev/kmsg record and formatted again.
#include <string_view>

#include "modules/blackbox/KmsgRecords.h"

using namespace zelkor::tessel::blackbox;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    KmsgRecordSplitter splitter;
    auto sink = [](std::string_view line) {
        KmsgRecord record;
        if (parse_kmsg_record(line, &record)) (void)format_kmsg_line(record);
        return true;
    };
    // Reads of varying sizes, as a device hands them out.
    for (size_t piece = 1; !input.empty(); piece = piece * 3 % 97 + 1) {
        const std::string_view chunk = input.substr(0, piece);
        splitter.feed(chunk, sink);
        input.remove_prefix(chunk.size());
    }
    splitter.finish(sink);
    return 0;
}
