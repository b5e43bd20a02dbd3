// The trust-zone diagnostic area ("md_TZ_DIAG").
//
// Its layout is the diagnostic table of Qualcomm's open-source tz_log driver
// (drivers/firmware/qcom/tz_log.c, struct tzdbg_t); all offsets in it are from
// the start of the area:
//    0 u32 magic "tzda"       20 u32 reset_info_off
//    4 u32 version            24 u32 int_info_off
//    8 u32 cpu_count          28 u32 ring_off (first byte of the log ring)
//   12 u32 vmid_info_off      32 u32 ring_len
//   16 u32 boot_info_off      36 u32 wakeup_info_off
// Boot info: per CPU the warm-boot and power-collapse counters and the last
// warm-boot jump address, in the 24-byte form of 32-bit trust zones or the
// 40-byte form of 64-bit ones; the table always has room for 8 CPUs, so the
// form shows in the distance from boot_info_off to reset_info_off. Reset info:
// per CPU u32 reset type, u32 reset count. The ring is preceded by its write
// position (u16 wrap count, u16 offset); diagnostic areas of major version 2
// and older keep a plain NUL-terminated text at ring_off instead.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/LittleEndian.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr uint32_t kTzDiagMagic = 0x747A6461;  // "tzda"
constexpr size_t kHeaderSize = 40;
constexpr uint32_t kMaxCpus = 8;
constexpr uint32_t kBootInfo32Size = 24;
constexpr uint32_t kBootInfo64Size = 40;
constexpr uint32_t kResetInfoSize = 8;
constexpr uint32_t kRingPosSize = 4;
constexpr uint32_t kLegacyMajorVersion = 2;

constexpr const char* kResetReasons[] = {
        "NONE",
        "SECURE_WDT",
        "NON_SECURE_WDT",
        "AHB_TIMEOUT",
        "RPM_WDOG",
        "RPM_ERR",
        "NOC_ERROR",
        "BIMC_ERROR",
        "TZBSP_ERR_FATAL_MON_UNDEF",
        "TZBSP_ERR_FATAL_UNKNOWN",
        "UNKNOWN",
};
constexpr uint32_t kUnknownReason = std::size(kResetReasons) - 1;

struct TzDiagHeader {
    uint32_t magic, version, cpuCount, vmidOff, bootOff, resetOff, intOff, ringOff, ringLen;
};

// Reads `len` bytes at `offset` of the area when they lie inside it.
bool ReadIn(const Section& in, uint64_t offset, void* out, size_t len) {
    return blackbox::range_fits(offset, len, in.size) &&
           blackbox::read_at(in.fd, static_cast<int64_t>(in.offset + offset), out, len) ==
                   static_cast<ssize_t>(len);
}

void WriteBootStatus(const Section& in, const TzDiagHeader& h, uint32_t cpus, OutBuffer& out) {
    out.Append("Boot Status :\n");
    // 64-bit entries when the reset info leaves room for eight of them.
    const bool wide = uint64_t(h.resetOff) >= uint64_t(h.bootOff) + kMaxCpus * kBootInfo64Size;
    const uint32_t entry = wide ? kBootInfo64Size : kBootInfo32Size;
    for (uint32_t cpu = 0; cpu < cpus; ++cpu) {
        uint8_t info[kBootInfo64Size];
        if (!ReadIn(in, uint64_t(h.bootOff) + cpu * entry, info, entry)) {
            MD_LOGE("tzdiag boot info of cpu %u out of range\n", cpu);
            return;
        }
        // Both forms begin with the four counters; the jump address follows
        // as a u32 (32-bit) or, after the PSCI counters, as a u64 (64-bit).
        uint64_t jump = wide ? LoadU64(info + 24) : LoadU32(info + 16);
        out.Printf(
                "  CPU #: %u\n"
                "  Warm boot jump address    : 0x%llx\n"
                "  Warm boot entry / exit    : 0x%x / 0x%x\n"
                "  Power collapse entry / exit: 0x%x / 0x%x\n",
                cpu, static_cast<unsigned long long>(jump), LoadU32(info), LoadU32(info + 4),
                LoadU32(info + 8), LoadU32(info + 12));
    }
}

void WriteResetStatus(const Section& in, const TzDiagHeader& h, uint32_t cpus, OutBuffer& out) {
    out.Append("Reset Status :\n");
    for (uint32_t cpu = 0; cpu < cpus; ++cpu) {
        uint8_t info[kResetInfoSize];
        if (!ReadIn(in, uint64_t(h.resetOff) + cpu * kResetInfoSize, info, sizeof(info))) {
            MD_LOGE("tzdiag reset info of cpu %u out of range\n", cpu);
            return;
        }
        const uint32_t type = LoadU32(info);
        out.Printf(
                "  CPU #: %d\n  Reset Type Value          : %u\n"
                "   Reset Type (reason)       : %s\n  Reset counter             : 0x%x\n",
                static_cast<int>(cpu), type, kResetReasons[std::min(type, kUnknownReason)],
                LoadU32(info + 4));
    }
}

// The log ring's bytes, oldest first, as partition ranges.
bool IsLegacy(const TzDiagHeader& h) {
    return (h.version >> 16) <= kLegacyMajorVersion;
}

std::vector<ByteRange> LogRanges(const Section& in, const TzDiagHeader& h) {
    const uint64_t ringLen =
            std::min<uint64_t>(h.ringLen, in.size - std::min<uint64_t>(h.ringOff, in.size));
    if (h.ringOff >= in.size || ringLen == 0) {
        MD_LOGE("tzdiag ring at 0x%x, 0x%x bytes, outside the area\n", h.ringOff, h.ringLen);
        return {};
    }
    const uint64_t ring = in.offset + h.ringOff;
    if (IsLegacy(h)) return {{ring, ringLen}};
    uint8_t pos[kRingPosSize];
    if (h.ringOff < kRingPosSize || !ReadIn(in, h.ringOff - kRingPosSize, pos, sizeof(pos))) {
        return {{ring, ringLen}};
    }
    const uint32_t wrap = LoadU16(pos);
    const uint32_t next = LoadU16(pos + 2);
    return RingRanges(ring, ringLen, wrap, next);
}

}  // namespace

void WriteTzDiag(const Section& in, int outFd, int parsedFd) {
    uint8_t raw[kHeaderSize];
    if (!ReadIn(in, 0, raw, sizeof(raw))) {
        MD_LOGE("tzdiag area of %lu bytes has no header\n", static_cast<unsigned long>(in.size));
        return;
    }
    TzDiagHeader h{};
    uint32_t* fields[] = {&h.magic,    &h.version, &h.cpuCount, &h.vmidOff, &h.bootOff,
                          &h.resetOff, &h.intOff,  &h.ringOff,  &h.ringLen};
    for (size_t i = 0; i < std::size(fields); ++i) *fields[i] = LoadU32(raw + 4 * i);
    if (h.magic != kTzDiagMagic) {
        MD_LOGE("tzdiag magic is 0x%x, not 0x747A6461, wrong return\n", h.magic);
        return;
    }
    uint32_t cpus = h.cpuCount;
    if (cpus > kMaxCpus) {
        MD_LOGE("tzdiag says %u cpus, showing %u\n", cpus, kMaxCpus);
        cpus = kMaxCpus;
    }
    OutBuffer out(outFd);
    out.Printf("TZ diag version 0x%x, %u CPUs\n", h.version, h.cpuCount);
    WriteBootStatus(in, h, cpus, out);
    WriteResetStatus(in, h, cpus, out);
    out.Append("Diag Log :\n");

    ensure_tzlog_dict();
    ByteSource ring(in.fd, LogRanges(in, h));
    TzlogTranslator translator(parsedFd);
    CopyText(ring, out, parsedFd >= 0 ? &translator : nullptr,
             IsLegacy(h) ? NulBytes::kEndText : NulBytes::kLeftOut);
}

}  // namespace zelkor::tessel::Minidump
