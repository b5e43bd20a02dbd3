// What a dump area holds, as JSON, read with the same bounds the boot run
// keeps to: nothing is read outside the image, and offsets that do not fit are
// shown as not trusted.
#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackboxLayout.h"
#include "tools/tessel-image/dump/DumpArea.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::image {

using namespace blackbox;

namespace {

Json::Value U64(uint64_t v) {
    return Json::Value(Json::UInt64(v));
}

// Eight magic bytes as text when printable, else as a hex number.
Json::Value MagicText(uint64_t magic) {
    char text[9] = {};
    memcpy(text, &magic, 8);
    bool printable = std::all_of(text, text + 8, [](char c) { return c >= 0x20 && c < 0x7f; });
    if (printable) return Json::Value(std::string(text, 8));
    char hex[24];
    snprintf(hex, sizeof(hex), "0x%016llx", static_cast<unsigned long long>(magic));
    return Json::Value(hex);
}

std::string FieldText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

Json::Value InspectSections(int fd, uint64_t first, uint64_t slotEnd, uint32_t count,
                            uint64_t fileSize) {
    // Keys are static so that a dump with thousands of headers does not copy
    // every key string; headers are read a batch at a time.
    static const Json::StaticString kIndex("index"), kName("name"), kFlags("flags"),
            kPosition("position"), kSize("size"), kTrusted("trusted");
    constexpr uint64_t kBatch = 64;
    Json::Value sections(Json::arrayValue);
    const uint64_t walk = Minidump::section_headers_to_walk(count, first, slotEnd);
    section_header batch[kBatch];
    for (uint64_t base = 0; base < walk; base += kBatch) {
        const uint64_t want = std::min(kBatch, walk - base);
        const ssize_t got = read_at(fd, first + base * sizeof(section_header), batch,
                                    want * sizeof(section_header));
        const uint64_t whole = got > 0 ? static_cast<uint64_t>(got) / sizeof(section_header) : 0;
        for (uint64_t k = 0; k < whole; ++k) {
            const section_header& s = batch[k];
            std::string name = FieldText(s.name, sizeof(s.name) - 1);
            if ((s.flags & 1u) == 0 && name.empty()) continue;  // an unused header
            Json::Value section(Json::objectValue);
            section[kIndex] = Json::UInt64(base + k);
            section[kName] = std::move(name);
            section[kFlags] = s.flags;
            section[kPosition] = U64(s.position);
            section[kSize] = U64(s.size);
            section[kTrusted] = blackbox::range_fits(s.position, s.size, fileSize);
            sections.append(std::move(section));
        }
        if (whole < want) break;  // the image ends inside this batch
    }
    return sections;
}

Json::Value InspectSlot(int fd, const last_log_header& header, const DumpAreaBounds& area,
                        bool inBlackbox, uint32_t index, uint64_t fileSize) {
    Json::Value slot;
    slot["index"] = index;
    const int64_t at =
            Minidump::dump_slot_offset(header, static_cast<uint32_t>(area.base), inBlackbox, index);
    slot["offset"] = Json::Int64(at);
    const uint64_t end = std::min(area.limit, fileSize);
    if (at < 0 || !blackbox::range_fits(at, sizeof(dump_header), end)) {
        slot["trusted"] = false;
        return slot;
    }
    slot["trusted"] = true;
    dump_header dump{};
    read_at(fd, at, &dump, sizeof(dump));
    slot["signature"] = MagicText(dump.signature);
    slot["valid"] = dump.signature == kRawDumpMagic;
    if (dump.signature != kRawDumpMagic) return slot;
    slot["version"] = dump.version;
    slot["parsed"] = strncmp(dump.parse_mark, Minidump::kParsedMark, sizeof(dump.parse_mark)) == 0;
    slot["sectionCount"] = dump.section_count;
    uint64_t first = at + sizeof(dump);
    if (dump.version == kDumpVersion2) {
        dump_header_v2 v2{};
        read_at(fd, first, &v2, sizeof(v2));
        slot["time"] = FieldText(v2.time, sizeof(v2.time) - 1);
        slot["bootIndex"] = v2.boot_index;
        first += sizeof(v2);
    }
    const uint64_t distance =
            inBlackbox ? header.blackbox_slot_distance : header.minidump_slot_distance;
    slot["sections"] = InspectSections(fd, first, Minidump::dump_slot_end(at, distance, end),
                                       dump.section_count, fileSize);
    return slot;
}

}  // namespace

Json::Value InspectDumpArea(int fd, uint64_t fileSize, bool inBlackbox) {
    Json::Value result;
    const DumpAreaBounds area = LocateDumpArea(fd, inBlackbox, fileSize);
    result["partition"] = inBlackbox ? "blackbox" : "minidump";
    result["areaOffset"] = U64(area.base);
    result["areaFromTableHeader"] = area.fromTableHeader;

    Json::Value lastLog;
    last_log_header header{};
    if (!blackbox::range_fits(area.base, sizeof(header), fileSize) ||
        read_at(fd, area.base, &header, sizeof(header)) != sizeof(header)) {
        lastLog["trusted"] = false;
        result["lastLog"] = std::move(lastLog);
        result["slots"] = Json::Value(Json::arrayValue);
        result["valid"] = false;  // not even room for the header
        return result;
    }
    lastLog["magic"] = MagicText(header.magic);
    lastLog["storeIndex"] = header.store_index;
    lastLog["counts"] = header.counts;
    lastLog["slot0Offset"] = U64(header.slot0_offset);
    lastLog["blackboxSlotDistance"] = U64(header.blackbox_slot_distance);
    lastLog["minidumpSlotDistance"] = U64(header.minidump_slot_distance);
    const bool known = header.magic == kLastLogMagic || header.magic == kRawDumpMagic;
    const bool trusted = known && header.store_index < Minidump::kMaxStoredDumps &&
                         header.counts <= Minidump::kMaxStoredDumps;
    lastLog["trusted"] = trusted;
    result["lastLog"] = std::move(lastLog);
    // A dump area never written (all zeros) is a valid empty one; anything
    // else must carry a header the daemon would take.
    static const last_log_header kNeverWritten{};
    result["valid"] = trusted || memcmp(&header, &kNeverWritten, sizeof(header)) == 0;

    Json::Value slots(Json::arrayValue);
    for (uint32_t i = 0; i < Minidump::kMaxStoredDumps; ++i) {
        slots.append(InspectSlot(fd, header, area, inBlackbox, i, fileSize));
    }
    result["slots"] = std::move(slots);
    return result;
}

}  // namespace zelkor::tessel::image
