// The hypervisor diagnostic area ("md_HYP_DIAG").
//
// Its layout is struct hypdbg_t of Qualcomm's open-source tz_log driver
// (drivers/firmware/qcom/tz_log.c); offsets from the start of the area:
//    0 u32 magic "hypm"        12 u16 ring wrap count, 14 u16 next ring offset
//    4 u32 cpu_count           16 u32 log_len
//    8 u32 ring_off            20 u32 stage-2 fault counter
//   24 per CPU (room for 8): u32 warm-boot entries, u32 warm-boot exits
// The log ring runs from ring_off to the end of the area, as the driver reads
// it.
#include <algorithm>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/LittleEndian.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr uint32_t kHypDiagMagic = 0x6879706D;  // "hypm"
constexpr uint32_t kMaxCpus = 8;
constexpr size_t kHeaderSize = 24 + kMaxCpus * 8;

}  // namespace

void WriteHypLog(const Section& in, int outFd) {
    uint8_t h[kHeaderSize];
    if (in.size < sizeof(h) ||
        blackbox::read_at(in.fd, static_cast<int64_t>(in.offset), h, sizeof(h)) != sizeof(h)) {
        MD_LOGE("hypdiag area of %lu bytes has no header\n", static_cast<unsigned long>(in.size));
        return;
    }
    if (LoadU32(h) != kHypDiagMagic) {
        MD_LOGE("hypdiag magic is 0x%x, not 0x6879706D, wrong return\n", LoadU32(h));
        return;
    }
    const uint32_t cpuCount = LoadU32(h + 4);
    OutBuffer out(outFd);
    out.Printf("Hyp diag: %u CPUs, stage 2 faults: %u\n", cpuCount, LoadU32(h + 20));
    for (uint32_t cpu = 0; cpu < std::min(cpuCount, kMaxCpus); ++cpu) {
        out.Printf("  CPU #: %u  warm boot entry / exit: 0x%x / 0x%x\n", cpu,
                   LoadU32(h + 24 + 8 * cpu), LoadU32(h + 28 + 8 * cpu));
    }
    out.Append("Hyp Log :\n");

    const uint32_t ringOff = LoadU32(h + 8);
    if (ringOff < kHeaderSize || ringOff >= in.size) {
        MD_LOGE("hypdiag ring at 0x%x outside the area\n", ringOff);
        return;
    }
    const uint32_t wrap = LoadU16(h + 12);
    const uint32_t next = LoadU16(h + 14);
    ByteSource ring(in.fd, RingRanges(in.offset + ringOff, in.size - ringOff, wrap, next));
    CopyText(ring, out, nullptr);
}

}  // namespace zelkor::tessel::Minidump
