// tessel-image's inspectors over an arbitrary image: the blackbox headers and
// regions, the dump area of a blackbox and of a minidump partition, and the
// crash history, as `tessel-image inspect` runs them.
#include <fcntl.h>
#include <unistd.h>

#include "FuzzRoot.h"
#include "tools/tessel-image/BlackboxInspector.h"
#include "tools/tessel-image/CrashHistoryInspector.h"
#include "tools/tessel-image/dump/DumpImage.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::FuzzRoot& root = fuzz::FuzzRoot::Get();
    root.Put("/image", data, size);
    const int fd = open(root.Host("/image").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    const Json::Value blackbox = image::InspectBlackbox(fd, size);
    (void)image::InspectDumpArea(fd, size, true);
    (void)image::InspectDumpArea(fd, size, false);
    (void)image::InspectCrashHistory(fd, size, 0);
    (void)image::InspectCrashHistory(fd, size,
                                     blackbox["control_content_header"]["offset"].asUInt64());
    close(fd);
    return 0;
}
