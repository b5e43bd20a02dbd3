// Records to and from JSON by the names of their members. A record lists its
// mapped members once with HALVEX_JSON_MEMBERS (and, to use other JSON keys
// for its first members, HALVEX_JSON_MEMBERS_RENAMED); that generates
//   HALVEX_MEMBERS_RENAME()               the rename list, empty when none,
//   HALVEX_CONVER_JSON_TO_OBJECT(json, n) JSON to record,
//   HALVEX_CONVER_OBJECT_TO_JSON(json, n) record to JSON,
// where `n` are rename entries already collected (callers pass the record's
// own or none). The key of member i is rename entry i when there is one, else
// the member's own name. Failures are results, never exceptions.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zelkor::tessel {

class JsonHelper {
  public:
    // The pieces between commas; a trailing piece only when non-empty.
    static std::vector<std::string> StringSplit(const std::string& text);
    // Strips leading and trailing spaces, then double quotes, from every piece.
    static void StringTrim(std::vector<std::string>& pieces);
    // The rename entries followed by the member names from that position on.
    static std::vector<std::string> EffectiveKeys(std::vector<std::string> renamed,
                                                  const char* memberList);

    // JSON to record, one member per key from position `index`: a null or
    // keyless value leaves the member as it is; a non-object fails.
    static bool WriteMembers(const std::vector<std::string>&, size_t, const Json::Value&) {
        return true;
    }
    template <typename T, typename... Rest>
    static bool WriteMembers(const std::vector<std::string>& keys, size_t index,
                             const Json::Value& json, T* member, Rest*... rest) {
        if (index >= keys.size()) return false;
        if (!json.isNull()) {
            if (!json.isObject()) return false;
            if (json.isMember(keys[index]) && !JsonToObject(*member, json[keys[index]])) {
                return false;
            }
        }
        return WriteMembers(keys, index + 1, json, rest...);
    }

    // Record to JSON: each key replaced by its member's value.
    static bool ReadMembers(const std::vector<std::string>&, size_t, Json::Value&) { return true; }
    template <typename T, typename... Rest>
    static bool ReadMembers(const std::vector<std::string>& keys, size_t index, Json::Value& json,
                            const T* member, const Rest*... rest) {
        if (index >= keys.size()) return false;
        json.removeMember(keys[index]);
        json[keys[index]] = ToJson(*member);
        return ReadMembers(keys, index + 1, json, rest...);
    }

    // One member from its JSON value.
    static bool JsonToObject(std::string& out, const Json::Value& value);
    static bool JsonToObject(bool& out, const Json::Value& value);
    static bool JsonToObject(uint64_t& out, const Json::Value& value);
    static bool JsonToObject(uint32_t& out, const Json::Value& value);
    static bool JsonToObject(int64_t& out, const Json::Value& value);
    // A vector member is emptied first, and needs an array; elements that
    // converted before a bad one are kept.
    template <typename T>
    static bool JsonToObject(std::vector<T>& out, const Json::Value& value) {
        out.clear();
        if (!value.isArray()) return false;
        for (const auto& element : value) {
            T record{};
            if (!record.HALVEX_CONVER_JSON_TO_OBJECT(element, {})) return false;
            out.push_back(std::move(record));
        }
        return true;
    }
    // A record, or an array of records, found by following `keyPath` from
    // the root (the root itself when the path is empty).
    template <typename T>
    static bool JsonToObject(T& record, const Json::Value& json,
                             const std::vector<std::string>& keyPath) {
        const Json::Value* at = Follow(json, keyPath);
        return at != nullptr &&
               record.HALVEX_CONVER_JSON_TO_OBJECT(*at, T::HALVEX_MEMBERS_RENAME());
    }
    template <typename T>
    static bool JsonToObject(std::vector<T>& records, const Json::Value& json,
                             const std::vector<std::string>& keyPath) {
        const Json::Value* at = Follow(json, keyPath);
        return at != nullptr && JsonToObject(records, *at);
    }

    // The record as a JSON object (a null target becomes one), or as its
    // compact one-line text; a target that is neither null nor an object fails.
    template <typename T>
    static bool ObjectToJson(const T& record, Json::Value& json) {
        if (json.isNull()) json = Json::Value(Json::objectValue);
        if (!json.isObject()) return false;
        return record.HALVEX_CONVER_OBJECT_TO_JSON(json, T::HALVEX_MEMBERS_RENAME());
    }
    template <typename T>
    static bool ObjectToJson(const T& record, std::string& text) {
        Json::Value json;
        return ObjectToJson(record, json) && ToText(json, text);
    }

    // Each member's key and what its JSON value must be, in member order:
    // lets tools name the key and the type behind a failed conversion.
    template <typename T>
    static std::vector<std::pair<std::string, const char*>> MemberTypes(const T& record) {
        const auto keys = EffectiveKeys(T::HALVEX_MEMBERS_RENAME(), T::HalvexMemberList());
        std::vector<std::pair<std::string, const char*>> types;
        record.HalvexApply([&](const auto&... m) {
            ((types.emplace_back(types.size() < keys.size() ? keys[types.size()] : "",
                                 TypeName(m))),
             ...);
            return true;
        });
        return types;
    }

  private:
    static const char* TypeName(const std::string&) { return "a string, number, object or null"; }
    static const char* TypeName(bool) { return "true or false"; }
    static const char* TypeName(uint64_t) { return "an unsigned 64-bit number"; }
    static const char* TypeName(uint32_t) { return "an unsigned 32-bit number"; }
    static const char* TypeName(int64_t) { return "a signed 64-bit number"; }
    template <typename T>
    static const char* TypeName(const std::vector<T>&) {
        return "an array of objects";
    }
    static const Json::Value* Follow(const Json::Value& root,
                                     const std::vector<std::string>& keyPath);
    static bool ToText(const Json::Value& json, std::string& text);
    static Json::Value ToJson(const std::string& v) { return Json::Value(v); }
    static Json::Value ToJson(bool v) { return Json::Value(v); }
    static Json::Value ToJson(int64_t v) { return Json::Value(Json::Int64(v)); }
    static Json::Value ToJson(uint64_t v) { return Json::Value(Json::UInt64(v)); }
    static Json::Value ToJson(uint32_t v) { return Json::Value(Json::UInt(v)); }
    template <typename T>
    static Json::Value ToJson(const std::vector<T>& records) {
        Json::Value array(Json::arrayValue);
        for (const auto& record : records) {
            Json::Value object(Json::objectValue);
            record.HALVEX_CONVER_OBJECT_TO_JSON(object, {});
            array.append(std::move(object));
        }
        return array;
    }
};

}  // namespace zelkor::tessel

// The member list, as written, is the text the keys come from.
#define HALVEX_JSON_MEMBERS_RENAMED(renameText, ...)                                               \
    static const char* HalvexMemberList() {                                                        \
        return #__VA_ARGS__;                                                                       \
    }                                                                                              \
    static std::vector<std::string> HALVEX_MEMBERS_RENAME() {                                      \
        auto names = ::zelkor::tessel::JsonHelper::StringSplit(renameText);                        \
        ::zelkor::tessel::JsonHelper::StringTrim(names);                                           \
        return names;                                                                              \
    }                                                                                              \
    bool HALVEX_CONVER_JSON_TO_OBJECT(const Json::Value& json, std::vector<std::string> renamed) { \
        const auto keys = ::zelkor::tessel::JsonHelper::EffectiveKeys(std::move(renamed),          \
                                                                      HalvexMemberList());         \
        return HalvexApply([&](auto&... m) {                                                       \
            return ::zelkor::tessel::JsonHelper::WriteMembers(keys, 0, json, &m...);               \
        });                                                                                        \
    }                                                                                              \
    bool HALVEX_CONVER_OBJECT_TO_JSON(Json::Value& json, std::vector<std::string> renamed) const { \
        const auto keys = ::zelkor::tessel::JsonHelper::EffectiveKeys(std::move(renamed),          \
                                                                      HalvexMemberList());         \
        return HalvexApply([&](const auto&... m) {                                                 \
            return ::zelkor::tessel::JsonHelper::ReadMembers(keys, 0, json, &m...);                \
        });                                                                                        \
    }                                                                                              \
    template <typename Fn>                                                                         \
    bool HalvexApply(Fn&& fn) {                                                                    \
        return fn(__VA_ARGS__);                                                                    \
    }                                                                                              \
    template <typename Fn>                                                                         \
    bool HalvexApply(Fn&& fn) const {                                                              \
        return fn(__VA_ARGS__);                                                                    \
    }

#define HALVEX_JSON_MEMBERS(...) HALVEX_JSON_MEMBERS_RENAMED("", __VA_ARGS__)
