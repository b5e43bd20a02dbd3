#include "modules/blackbox/KmsgRecords.h"

#include <android-base/stringprintf.h>

#include <cstdio>
#include <cstring>

namespace zelkor::tessel::blackbox {

bool parse_kmsg_record(std::string_view line, KmsgRecord* record) {
    const std::string text(line);  // sscanf needs the terminator
    unsigned priority = 0;
    unsigned long long usec = 0;
    char facility[22] = {};
    int message = -1;
    if (sscanf(text.c_str(), "%10u,%*u,%20llu,%21[^;]; %n", &priority, &usec, facility, &message) !=
                3 ||
        message < 0) {
        return false;
    }
    const char* equals = strchr(facility, '=');
    record->usec = usec;
    record->facility = equals != nullptr ? equals + 1 : facility;
    const char* body = text.c_str() + message;
    record->message.assign(body, strcspn(body, "\n"));
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
