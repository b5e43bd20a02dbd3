#include "modules/blackbox/KmsgRecords.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <charconv>

namespace zelkor::tessel::blackbox {

namespace {

// Flags and what the kernel appends to them (",caller=T123"), kept whole up to
// this length; a longer field is not a record this reader knows.
constexpr size_t kMaxFacility = 21;

// Takes a decimal number and the ',' behind it off the front of `fields`.
bool TakeNumber(std::string_view* fields, unsigned long long* value) {
    const auto [next, error] =
            std::from_chars(fields->data(), fields->data() + fields->size(), *value);
    const size_t taken = static_cast<size_t>(next - fields->data());
    if (error != std::errc() || fields->substr(taken, 1) != ",") return false;
    fields->remove_prefix(taken + 1);
    return true;
}

}  // namespace

bool parse_kmsg_record(std::string_view line, KmsgRecord* record) {
    line = line.substr(0, line.find('\0'));
    const size_t semicolon = line.find(';');
    if (semicolon == std::string_view::npos) return false;
    std::string_view fields = line.substr(0, semicolon);
    unsigned long long priority = 0, sequence = 0, usec = 0;
    if (!TakeNumber(&fields, &priority) || !TakeNumber(&fields, &sequence) ||
        !TakeNumber(&fields, &usec) || fields.empty() || fields.size() > kMaxFacility) {
        return false;
    }
    // Blanks between the ';' and the text are not part of the message.
    std::string_view message = line.substr(semicolon + 1);
    message.remove_prefix(std::min(message.find_first_not_of(" \t\v\f\r"), message.size()));
    const size_t equals = fields.find('=');
    record->usec = usec;
    record->facility = equals == std::string_view::npos ? fields : fields.substr(equals + 1);
    record->message = message;
    return true;
}

std::string format_kmsg_line(const KmsgRecord& record) {
    return android::base::StringPrintf("[%5llu.%06llu][ %s] %s\n", record.usec / 1000000,
                                       record.usec % 1000000, record.facility.c_str(),
                                       record.message.c_str());
}

bool KmsgRecordSplitter::feed(std::string_view chunk, const Sink& sink) {
    while (!chunk.empty()) {
        const size_t newline = chunk.find('\n');
        const std::string_view piece = chunk.substr(0, newline);
        chunk.remove_prefix(newline == std::string_view::npos ? chunk.size() : newline + 1);
        if (skipping_) {
            skipping_ = newline == std::string_view::npos;
            continue;
        }
        if (newline == std::string_view::npos) {
            pending_.append(piece);
            if (pending_.size() < kKmsgReadSize) return true;
            // No record is this long; hand out its head and drop the rest.
            std::string line = std::move(pending_);
            pending_.clear();
            line.resize(kKmsgReadSize);
            skipping_ = true;
            return sink(line);
        }
        if (pending_.empty()) {
            if (!sink(piece)) return false;
        } else {
            pending_.append(piece);
            std::string line = std::move(pending_);
            pending_.clear();
            if (line.size() > kKmsgReadSize) line.resize(kKmsgReadSize);
            if (!sink(line)) return false;
        }
    }
    return true;
}

bool KmsgRecordSplitter::finish(const Sink& sink) {
    std::string line = std::move(pending_);
    pending_.clear();
    skipping_ = false;
    return sink(line);
}

}  // namespace zelkor::tessel::blackbox
