// Writing a dump into an image the way the boot loader leaves one.
//
// A dump slot holds, back to back: the 56-byte dump header, for version
// 0x2000 the 32-byte extension (time, boot index), the section headers (20
// zeroed ones when there are none, as a count of 0 means 20), then each
// section's data at a 16-byte boundary. Section positions are absolute
// offsets in the image. A new area gets slot 0 at 1 KiB behind the last-log
// header and slots 10 MiB apart in a blackbox image (room for all ten below
// the control block with the default map) or 6 MiB apart in a minidump
// partition: the numbers the boot run's header repair stamps too.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/blackbox/BlackBoxDefaults.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "modules/blackbox/BlackboxLayout.h"
#include "tools/tessel-image/ImageFile.h"
#include "tools/tessel-image/dump/DumpArea.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::image {

using namespace blackbox;

namespace {

constexpr uint64_t kDataAlign = 16;

uint64_t AlignUp(uint64_t v) {
    return (v + kDataAlign - 1) / kDataAlign * kDataAlign;
}

std::string Errno(const std::string& what) {
    return what + ": " + strerror(errno);
}

// The header after this dump: the history grows by one entry, anything else
// becomes a fresh raw dump with the default slot geometry.
last_log_header NextLastLogHeader(const last_log_header& old, uint32_t slot) {
    last_log_header header = old;
    if (old.magic == kLastLogMagic || old.magic == kRawDumpMagic) {
        header.counts = std::min(old.counts + 1, Minidump::kMaxStoredDumps);
    } else {
        header = last_log_header{};
        header.magic = kRawDumpMagic;
        header.counts = 0;
        stamp_default_last_log_geometry(&header);
    }
    header.store_index = slot;
    return header;
}

// How long a section's pipe may keep dump add waiting for its writer.
constexpr int kPipeWaitMs = 10000;

std::string TooBig(const std::string& path, const std::string& size) {
    return path + ": " + size + " bytes do not fit in the dump slot";
}

// The section's bytes, at most `maxSize` of them, from a regular file, a block
// device or a pipe. The size is checked before and while reading: for a pipe
// or a file that grows after it was opened, reading stops as soon as more
// than `maxSize` bytes came and the section is refused.
bool ReadDataFile(const std::string& path, uint64_t maxSize, std::string* data,
                  std::string* error) {
    const int fd = OpenImageFile(path, O_RDONLY, error, 0, /*pipes=*/true);
    if (fd < 0) return false;
    const int64_t size = partition_size(fd);
    bool ok = size >= 0;
    if (!ok) *error = Errno(path);
    if (ok && static_cast<uint64_t>(size) > maxSize) {
        *error = TooBig(path, std::to_string(size));
        ok = false;
    }
    data->clear();
    char chunk[64 * 1024];
    for (ssize_t got = 0; ok && (got = ReadSome(fd, chunk, sizeof(chunk), kPipeWaitMs)) != 0;) {
        if (got < 0) {
            *error = path + (errno == ETIMEDOUT ? ": nothing written to the pipe within " +
                                                          std::to_string(kPipeWaitMs / 1000) + " s"
                                                : std::string(": read failed: ") + strerror(errno));
            ok = false;
        } else if (static_cast<uint64_t>(got) > maxSize - data->size()) {
            *error = TooBig(path, "more than " + std::to_string(maxSize));
            ok = false;
        } else {
            data->append(chunk, static_cast<size_t>(got));
        }
    }
    close(fd);
    return ok;
}

// The slot's bytes: headers and data, with positions relative to `slot`.
bool BuildDump(const DumpAddOptions& options, uint64_t slot, uint64_t room, std::string* dump,
               std::string* error) {
    const bool v2 = options.version == kDumpVersion2;
    const size_t headerCount =
            options.sections.empty() ? Minidump::kDefaultSectionCount : options.sections.size();
    const uint64_t headersEnd = sizeof(dump_header) + (v2 ? sizeof(dump_header_v2) : 0) +
                                headerCount * sizeof(section_header);
    if (headersEnd > room) {
        *error = "the dump headers do not fit in the dump slot";
        return false;
    }
    dump->assign(headersEnd, '\0');
    dump_header header{};
    header.signature = kRawDumpMagic;
    header.version = options.version;
    header.section_count = static_cast<uint32_t>(options.sections.size());
    memcpy(&(*dump)[0], &header, sizeof(header));
    size_t at = sizeof(header);
    if (v2) {
        dump_header_v2 ext{};
        memcpy(ext.time, options.time.data(), std::min(options.time.size(), sizeof(ext.time) - 1));
        ext.boot_index = options.bootIndex;
        memcpy(&(*dump)[at], &ext, sizeof(ext));
        at += sizeof(ext);
    }
    for (const DumpSectionArg& arg : options.sections) {
        std::string data;
        uint64_t start = AlignUp(dump->size());
        if (start > room || !ReadDataFile(arg.dataFile, room - start, &data, error)) {
            if (error->empty()) *error = "section " + arg.name + " does not fit in the dump slot";
            return false;
        }
        section_header section{};
        section.flags = 1;
        section.position = slot + start;
        section.size = data.size();
        memcpy(section.name, arg.name.data(), std::min(arg.name.size(), sizeof(section.name) - 1));
        memcpy(&(*dump)[at], &section, sizeof(section));
        at += sizeof(section);
        dump->resize(start);
        dump->append(data);
    }
    return true;
}

}  // namespace

bool WriteDump(const DumpAddOptions& options, std::string* error) {
    const int fd = OpenImageFile(options.image, O_RDWR | O_CREAT, error);
    if (fd < 0) return false;
    struct stat st {};
    fstat(fd, &st);
    // A block device ends where it ends (no room when its size cannot be
    // told); an image file grows as needed.
    const uint64_t fileLimit =
            S_ISBLK(st.st_mode) ? std::max<int64_t>(partition_size(fd), 0) : UINT64_MAX;
    const bool inBlackbox = !options.minidumpPartition;
    DumpAreaBounds area = LocateDumpArea(fd, inBlackbox, fileLimit);
    bool ok = false;
    do {
        if (area.limit <= area.base + sizeof(last_log_header)) {
            *error = "the image has no room for a dump area";
            break;
        }
        last_log_header old{};
        read_at(fd, static_cast<int64_t>(area.base), &old, sizeof(old));
        last_log_header header = NextLastLogHeader(old, options.slot);
        const int64_t slot = Minidump::dump_slot_offset(header, static_cast<uint32_t>(area.base),
                                                        inBlackbox, options.slot);
        const uint64_t distance =
                inBlackbox ? header.blackbox_slot_distance : header.minidump_slot_distance;
        if (slot < 0 || uint64_t(slot) < area.base + sizeof(header) ||
            uint64_t(slot) >= area.limit) {
            *error = "dump slot " + std::to_string(options.slot) + " lies outside the dump area";
            break;
        }
        const uint64_t room = std::min<uint64_t>(distance, area.limit - slot);
        std::string dump;
        if (!BuildDump(options, slot, room, &dump, error)) break;
        // An image file grows to hold the slot; the positioned writes below
        // never go past a partition's end.
        const uint64_t end = uint64_t(slot) + dump.size();
        if (!S_ISBLK(st.st_mode) && uint64_t(st.st_size) < end &&
            ftruncate(fd, static_cast<off_t>(end)) != 0) {
            *error = Errno(options.image);
            break;
        }
        if (write_at(fd, slot, dump.data(), dump.size()) < 0 ||
            write_at(fd, static_cast<int64_t>(area.base), &header, sizeof(header)) < 0) {
            *error = Errno(options.image);
            break;
        }
        ok = true;
    } while (false);
    if (close(fd) != 0 && ok) {
        *error = Errno(options.image);
        ok = false;
    }
    return ok;
}

int RunDumpAdd(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    DumpAddOptions options;
    std::string error;
    if (!ParseDumpAddArgs(args, &options, &error)) {
        // tessel-image prints the usage line after a usage error.
        err << "dump add: " << error << "\n";
        return 2;
    }
    if (!WriteDump(options, &error)) {
        err << "dump add: " << error << "\n";
        return 1;
    }
    out << "dump written to slot " << options.slot << " of " << options.image << " ("
        << options.sections.size() << " sections)\n";
    return 0;
}

}  // namespace zelkor::tessel::image
