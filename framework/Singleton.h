// Process-wide instances created on first use. T derives from Singleton<T> and
// takes a Token in its constructor, so only getInstance() can build it.
#pragma once

#include <memory>
#include <mutex>

namespace zelkor::tessel {

template <typename T>
class Singleton {
  public:
    static T& getInstance() {
        // The holder is never destroyed: handler threads keep running while
        // the process exits and may still reach the instance.
        static std::once_flag once;
        static std::unique_ptr<T>& instance = *new std::unique_ptr<T>();
        std::call_once(once, [] { instance.reset(new T(Token{})); });
        return *instance;
    }
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

  protected:
    struct Token {};
    Singleton() = default;
    ~Singleton() = default;
};

}  // namespace zelkor::tessel
