// Captures what the process writes to the Android log, for tests that check
// the exact lines a component logs.
#pragma once

#include <android/log.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace zelkor::tessel::testing {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

// Installs itself as the log's writer for its lifetime; safe from any thread.
class LogCapture {
  public:
    explicit LogCapture(int minPriority = ANDROID_LOG_VERBOSE) {
        {
            std::lock_guard<std::mutex> lock(mutex());
            lines().clear();
        }
        // Not under our lock: liblog holds its own lock while calling write().
        __android_log_set_logger(&LogCapture::write);
        __android_log_set_minimum_priority(minPriority);
    }
    ~LogCapture() {
        __android_log_set_logger(__android_log_stderr_logger);
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> all() const {
        std::lock_guard<std::mutex> lock(mutex());
        return lines();
    }

    // Lines of tag whose message contains text.
    int count(const std::string& tag, const std::string& text) const {
        auto snapshot = all();
        return static_cast<int>(std::count_if(snapshot.begin(), snapshot.end(), [&](auto& l) {
            return l.tag == tag && l.message.find(text) != std::string::npos;
        }));
    }

    bool contains(const std::string& tag, const std::string& message) const {
        auto snapshot = all();
        return std::any_of(snapshot.begin(), snapshot.end(),
                           [&](auto& l) { return l.tag == tag && l.message == message; });
    }

  private:
    static void write(const __android_logger_data* data, const char* msg) {
        std::lock_guard<std::mutex> lock(mutex());
        lines().push_back({data->priority, data->tag != nullptr ? data->tag : "", msg});
    }
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static std::vector<LogLine>& lines() {
        static std::vector<LogLine> l;
        return l;
    }
};

}  // namespace zelkor::tessel::testing
