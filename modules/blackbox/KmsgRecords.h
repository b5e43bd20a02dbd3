// Records of the kernel log as "/dev/kmsg" hands them out:
// "prio,seq,usec,flags;message\n", possibly followed by " KEY=value\n" lines.
// A read of the device returns one record; a read of a plain file (a host
// root's stand-in) may return several, and cut the last one short.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace zelkor::tessel::blackbox {

// Largest read of the kernel log, and the longest record line kept.
constexpr size_t kKmsgReadSize = 8192;

struct KmsgRecord {
    unsigned long long usec = 0;
    std::string facility;  // the flags field's text after its '=', or all of it
    std::string message;   // up to the first NUL
};

// Parses one record line, without its newline. False when it does not give
// the three numbers and the flags.
bool parse_kmsg_record(std::string_view line, KmsgRecord* record);

// "[%5llu.%06llu][ %s] %s\n": seconds, microseconds, facility, message.
std::string format_kmsg_line(const KmsgRecord& record);

// Cuts what successive reads return into lines, without their newline. The
// key/value lines that follow a record come out too; they do not parse as
// records.
class KmsgRecordSplitter {
  public:
    // Returns false to stop.
    using Sink = std::function<bool(std::string_view line)>;

    // Hands every complete line of `chunk` to `sink`; false once sink stopped.
    bool feed(std::string_view chunk, const Sink& sink);
    // Hands out a last line that had no newline.
    bool finish(const Sink& sink);

  private:
    std::string pending_;
    bool skipping_ = false;  // in the tail of a line longer than kKmsgReadSize
};

}  // namespace zelkor::tessel::blackbox
