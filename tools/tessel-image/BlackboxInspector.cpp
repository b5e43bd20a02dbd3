#include "tools/tessel-image/BlackboxInspector.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "modules/blackbox/BlackBoxDefaults.h"
#include "tools/tessel-image/HwinfoRegion.h"
#include "tools/tessel-image/ImageFile.h"

namespace zelkor::tessel::image {
namespace {

using namespace zelkor::tessel::blackbox;

// Bigger dotting areas than this are not read; the default is about 3 MiB.
constexpr uint64_t kDottingAreaReadMax = 16u << 20;

// Text lines of a log area: NUL bytes (never written space) dropped, empty
// lines skipped.
Json::Value Lines(std::string_view bytes) {
    Json::Value lines(Json::arrayValue);
    std::string line;
    for (char c : bytes) {
        if (c == '\0') continue;
        if (c != '\n') {
            line += c;
            continue;
        }
        if (!line.empty()) lines.append(Printable(line));
        line.clear();
    }
    if (!line.empty()) lines.append(Printable(line));
    return lines;
}

std::string Label(const char (&label)[kLabelSize]) {
    return Printable(std::string_view(label, strnlen(label, kLabelSize)));
}

class Inspection {
  public:
    Inspection(int fd, uint64_t size) : mImage(fd, size) {}

    Json::Value Run() {
        const log_table_header table = Table();
        const log_content_header content = Content(table);
        const bool slotValid = Slot(content);
        Control(table);
        Hwinfo();
        if (slotValid) {
            Dotting(content);
            Kmsg(content);
        }
        mOut["valid"] = mErrors.empty();
        mOut["errors"] = std::move(mErrors);
        return mOut;
    }

  private:
    void Error(const std::string& text) { mErrors.append(text); }

    // Starts the subtree of the header at `offset` and reads the header; null
    // (and an error) when its place is outside the file.
    template <typename Header>
    Json::Value* Read(const char* name, uint64_t offset, Header* header) {
        Json::Value& out = mOut[name];
        out["offset"] = Json::UInt64(offset);
        if (mImage.Read(offset, header, sizeof(*header))) return &out;
        Error(std::string(name) + " at " + Hex(offset) + " lies outside the file (size " +
              Hex(mImage.size()) + ")");
        out["valid"] = false;
        return nullptr;
    }

    // Read(), with "valid" telling whether the header's magic is `expected`.
    template <typename Header>
    Json::Value* Open(const char* name, uint64_t offset, Header* header, uint64_t expected) {
        Json::Value* out = Read(name, offset, header);
        if (out != nullptr) (*out)["valid"] = CheckMagic(name, *out, header->magic, expected);
        return out;
    }

    bool CheckMagic(const char* name, Json::Value& out, uint64_t magic, uint64_t expected,
                    const char* field = "magic") {
        out[field] = Hex(magic);
        if (magic == expected) return true;
        Error(std::string(name) + ": bad " + field + " " + Hex(magic) + ", expected " +
              Hex(expected));
        return false;
    }

    // The header, or the defaults the daemon would stamp in its place.
    log_table_header Table() {
        log_table_header header{};
        if (Json::Value* found = Open("log_table_header", 0, &header, kLogTableMagic)) {
            Json::Value& out = *found;
            out["version"] = header.version;
            out["reserved12"] = header.reserved0;
            out["boot_index"] = header.boot_index;
            out["log_content_offset"] = header.log_content_offset;
            out["minidump_offset"] = header.minidump_offset;
            out["minidump_is_valid"] = header.minidump_is_valid;
            out["control_content_offset"] = header.control_content_offset;
            if (out["valid"].asBool()) return header;
        }
        stamp_default_log_table_header(&header);
        return header;
    }

    log_content_header Content(const log_table_header& table) {
        log_content_header header{};
        if (Json::Value* found = Open("log_content_header", table.log_content_offset, &header,
                                      kLogContentMagic)) {
            Json::Value& out = *found;
            out["version"] = header.version;
            out["reserved12"] = header.reserved0;
            out["log_offset"] = header.log_offset;
            out["dump_count"] = header.dump_count;
            out["log_size"] = header.log_size;
            if (out["valid"].asBool()) return header;
        }
        stamp_default_log_content_header(&header);
        return header;
    }

    // The current slot's header; true when it and its place can be trusted.
    bool Slot(const log_content_header& content) {
        const int64_t slot = SlotOffset(content);
        if (slot < 0) {
            Error("current slot " + std::to_string(content.dump_count) +
                  " lies at a negative offset");
            return false;
        }
        mSlot = static_cast<uint64_t>(slot);
        Json::Value* found = Open("black_box_log_header", mSlot, &mLog, kSlotHeaderMagic);
        if (found == nullptr) return false;
        Json::Value& out = *found;
        out["slot"] = content.dump_count;
        Json::Value region(Json::arrayValue);
        for (uint32_t word : mLog.region) region.append(word);
        out["region"] = std::move(region);
        out["kmsg_offset"] = mLog.kmsg_offset;
        out["region8"] = mLog.region8;
        out["region9"] = mLog.region9;
        out["dotting_offset"] = mLog.dotting_offset;
        out["prev_name"] = Label(mLog.prev_name);
        out["cur_name"] = Label(mLog.cur_name);
        mDottingValid = CheckMagic("black_box_log_header", out, mLog.dotting_magic, kDottingMagic,
                                   "dotting_magic");
        out["dotting_valid"] = mDottingValid;
        out["dotting_reserved"] = mLog.dotting_reserved;
        out["dotting_count"] = Json::UInt64(mLog.dotting_count);
        out["boot_dotting_end"] = mLog.boot_dotting_end;
        out["ring_start"] = mLog.ring_start;
        out["dotting_max_len"] = mLog.dotting_max_len;
        out["boot_dotting_max"] = mLog.boot_dotting_max;
        out["log_dotting_write_offset"] = mLog.log_dotting_write_offset;
        out["reserved132"] = mLog.reserved132;
        out["dump_process_fail"] = mLog.dump_process_fail;
        return out["valid"].asBool();
    }

    void Control(const log_table_header& table) {
        control_content_header header{};
        uint64_t configOffset = kDefaultConfigOffset;
        if (Json::Value* found = Open("control_content_header", table.control_content_offset,
                                      &header, kControlContentMagic)) {
            Json::Value& out = *found;
            out["version"] = header.version;
            out["crash_history_offset"] = header.crash_history_offset;
            out["reserved16"] = header.reserved0;
            out["config_offset"] = header.config_offset;
            out["hwinfo_offset"] = header.hwinfo_offset;
            if (out["valid"].asBool()) configOffset = header.config_offset;
        }
        blackbox_partition_config config{};
        Json::Value* found = Read("blackbox_partition_config", configOffset, &config);
        if (found == nullptr) return;
        Json::Value& out = *found;
        out["isUartEnable"] = config.isUartEnable;
        out["isForceQpstWhenFulldump"] = config.isForceQpstWhenFulldump;
        out["isOEMDebugUartLogLevel"] = config.isOEMDebugUartLogLevel;
    }

    // The hardware-info region: where it is and how many records it holds
    // (tessel-image hwinfo decrypts them).
    void Hwinfo() {
        Json::Value& out = mOut["hwinfo"];
        const uint64_t offset = HwinfoRegionOffset(mImage.fd());
        out["offset"] = Json::UInt64(offset);
        out["records"] = Json::UInt64(ReadHwinfoRecords(mImage, offset).size());
    }

    // Boot phase first, then the ring part from the oldest byte (at the write
    // offset) round to the newest.
    void Dotting(const log_content_header& content) {
        if (!mDottingValid) return;
        const uint64_t size = content.log_size;
        const uint64_t start = mLog.dotting_offset;
        if (start >= size) {
            Error("dotting_offset " + Hex(start) + " is not inside the slot (log_size " +
                  Hex(size) + ")");
            return;
        }
        const uint64_t area = mSlot + start;
        const uint64_t length = size - start;
        const uint64_t write = mLog.log_dotting_write_offset;
        const int64_t ring = mLog.ring_start;
        Json::Value& out = mOut["dotting"];
        out["offset"] = Json::UInt64(area);
        out["size"] = Json::UInt64(length);
        out["boot_phase_open"] = ring < 0;
        if (length > kDottingAreaReadMax) {
            Error("dotting area of " + Hex(length) + " bytes is too large to read");
            return;
        }
        if (!mImage.Contains(area, length)) {
            Error("dotting area " + Hex(area) + "+" + Hex(length) + " lies outside the file");
            return;
        }
        if (write > length) {
            Error("log_dotting_write_offset " + Hex(write) + " lies outside the dotting area");
            return;
        }
        if (ring > static_cast<int64_t>(write)) {
            Error("ring_start " + Hex(static_cast<uint64_t>(ring)) +
                  " lies beyond log_dotting_write_offset");
            return;
        }
        const std::string bytes = mImage.ReadSpan(area, length);
        const std::string_view all(bytes);
        if (ring < 0) {
            out["boot"] = Lines(all.substr(0, write));
            out["ring"] = Json::Value(Json::arrayValue);
            return;
        }
        const size_t ringStart = static_cast<size_t>(ring);
        out["boot"] = Lines(all.substr(0, ringStart));
        std::string ringBytes(all.substr(write));
        ringBytes.append(all.substr(ringStart, write - ringStart));
        out["ring"] = Lines(ringBytes);
    }

    // From kmsg_offset to the first never-written byte, at most kKmsgAreaMax.
    void Kmsg(const log_content_header& content) {
        const uint64_t size = content.log_size;
        const uint64_t start = mLog.kmsg_offset;
        if (start >= size) {
            Error("kmsg_offset " + Hex(start) + " is not inside the slot (log_size " + Hex(size) +
                  ")");
            return;
        }
        const uint64_t area = mSlot + start;
        Json::Value& out = mOut["kmsg"];
        out["offset"] = Json::UInt64(area);
        if (!mImage.Contains(area, 1)) {
            Error("kernel boot log area at " + Hex(area) + " lies outside the file");
            return;
        }
        uint64_t length = std::min<uint64_t>(kKmsgAreaMax, size - start);
        if (!mImage.Contains(area, length)) {
            Error("kernel boot log area runs past the end of the file");
            length = mImage.size() - area;
        }
        const std::string bytes = mImage.ReadSpan(area, length);
        out["lines"] = Lines(std::string_view(bytes).substr(0, bytes.find('\0')));
    }

    ImageFile mImage;
    Json::Value mOut{Json::objectValue};
    Json::Value mErrors{Json::arrayValue};
    uint64_t mSlot = 0;
    black_box_log_header mLog{};
    bool mDottingValid = false;
};

}  // namespace

Json::Value InspectBlackbox(int fd, uint64_t file_size) {
    return Inspection(fd, file_size).Run();
}

}  // namespace zelkor::tessel::image
