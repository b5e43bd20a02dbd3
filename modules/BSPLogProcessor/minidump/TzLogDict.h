// Trust-zone log translation. The trust zone logs "[time](id args...)" lines;
// the dictionary "/vendor/etc/tzlog.dict" ("id:module:format") turns them back
// into text for "last_tzlog_parsed".
#pragma once

#include <cstddef>
#include <string>

namespace zelkor::tessel::Minidump {

constexpr char kTzlogDictPath[] = "/vendor/etc/tzlog.dict";

// Reads the dictionary, replacing any loaded before. 0, or -1 when the file
// cannot be opened (the dictionary is then empty).
int load_tzlog_dict();

// Loads the dictionary unless a load was tried already in this process.
void ensure_tzlog_dict();

// Forgets the dictionary, so that the next ensure_tzlog_dict() reads it again.
void clear_tzlog_dict();

// Translates every newline-terminated line of `text` and writes the result to
// `fd`; text after the last newline is left alone.
void translate_tzlog(int fd, const char* text, size_t length);

// Feeds a log that arrives in pieces to translate_tzlog() line by line.
class TzlogTranslator {
  public:
    explicit TzlogTranslator(int fd) : mFd(fd) {}
    void Feed(const char* data, size_t length);

  private:
    // A line longer than this is not a trust-zone line; it is dropped.
    static constexpr size_t kMaxPending = 64 * 1024;
    int mFd;
    std::string mPending;
};

}  // namespace zelkor::tessel::Minidump
