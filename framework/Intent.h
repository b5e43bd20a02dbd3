// The message of the broadcast bus: an action and typed extras.
#pragma once

#include <json/json.h>

#include <any>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <variant>

#include "framework/Object.h"

namespace zelkor::tessel {

// One extra. The index of the alternative is its type code on the internal
// channel, so the order must never change.
using ExtraValue = std::variant<Json::Value, bool, std::string, const char*, float, int64_t,
                                int32_t, std::any>;

enum ExtraType : int {
    EXTRA_JSON = 0,
    EXTRA_BOOL = 1,
    EXTRA_STRING = 2,
    EXTRA_CSTRING = 3,  // not owned; becomes EXTRA_STRING across processes
    EXTRA_FLOAT = 4,
    EXTRA_INT64 = 5,
    EXTRA_INT32 = 6,
    EXTRA_ANY = 7,  // in-process only
};

template <typename T, typename V>
struct IsExtraAlternative : std::false_type {};
template <typename T, typename... A>
struct IsExtraAlternative<T, std::variant<A...>> : std::disjunction<std::is_same<T, A>...> {};

class Intent : public Object {
  public:
    using Extras = std::map<std::string, ExtraValue>;

    Intent() = default;
    explicit Intent(std::string action) : mAction(std::move(action)) {}

    const std::string& getAction() const { return mAction; }
    void setAction(const std::string& action) { mAction = action; }

    // The module or process that sent the intent; informational only.
    const std::string& getSender() const { return mSender; }
    void setSender(const std::string& sender) { mSender = sender; }
    // Sender-defined flags; the bus copies them and never reads them.
    int64_t getFlags() const { return mFlags; }
    void setFlags(int64_t flags) { mFlags = flags; }

    void putExtra(const std::string& key, ExtraValue value) { mExtras[key] = std::move(value); }
    Extras getExtras() const { return mExtras; }
    // A missing key gives a null Json::Value (type code 0).
    ExtraValue getExtra(const std::string& key) const;

    // The extra as T. Throws std::bad_any_cast when the key holds another
    // type (a std::any extra is cast to T), and gives a default T for a
    // missing key when T is Json::Value (null).
    template <typename T>
    T getExtra(const std::string& key) const {
        ExtraValue value = getExtra(key);
        if constexpr (IsExtraAlternative<T, ExtraValue>::value) {
            if (const T* held = std::get_if<T>(&value)) return *held;
        }
        if (const std::any* any = std::get_if<std::any>(&value)) return std::any_cast<T>(*any);
        throw std::bad_any_cast();
    }

  private:
    Extras mExtras;
    std::string mSender;
    std::string mAction;
    int64_t mFlags = 0;
};

}  // namespace zelkor::tessel
