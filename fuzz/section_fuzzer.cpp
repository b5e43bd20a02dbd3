// Every section writer of the dump extraction over arbitrary bytes: the
// first byte picks the section (and an older dump's number), the rest is the
// section as it lies in the partition.
#include <fcntl.h>
#include <unistd.h>

#include <iterator>

#include "FuzzRoot.h"
#include "modules/BSPLogProcessor/Minidump.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kSections[] = {"md_KMDT0x110.BIN", "md_kmsg",      "md_pmsg",
                                            "md_cpusys",        "md_TZ_IMEM",   "md_ltz",
                                            "md_HYP_DIAG",      "md_TZ_DIAG",   "md_XBL_LOG",
                                            "md_TZ_AES_KEY",    "md_TZ_AES_IV", "md_encr_key_aes"};
    if (size < 1) return 0;
    const fuzz::FuzzRoot& root = fuzz::FuzzRoot::Get();
    root.Put("/dev/block/by-name/minidump", data + 1, size - 1);
    const int fd = open(root.Host("/dev/block/by-name/minidump").c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return 0;
    const char* name = kSections[(data[0] & 0x7f) % std::size(kSections)];
    Minidump::parse_log(fd, name, 0, size - 1, data[0] >> 7);
    close(fd);
    return 0;
}
