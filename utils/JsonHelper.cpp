#include "utils/JsonHelper.h"

#include "utils/JsonUtil.h"
#include "utils/StringUtil.h"

namespace zelkor::tessel {

std::vector<std::string> JsonHelper::StringSplit(const std::string& text) {
    std::vector<std::string> pieces;
    size_t start = 0;
    for (size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1) {
        pieces.push_back(text.substr(start, comma - start));
    }
    if (start < text.size()) pieces.push_back(text.substr(start));
    return pieces;
}

void JsonHelper::StringTrim(std::vector<std::string>& pieces) {
    for (auto& piece : pieces) {
        piece = StringUtil::TrimStr(StringUtil::TrimStr(piece, ' '), '"');
    }
}

std::vector<std::string> JsonHelper::EffectiveKeys(std::vector<std::string> renamed,
                                                   const char* memberList) {
    std::vector<std::string> members = StringSplit(memberList);
    StringTrim(members);
    for (size_t i = renamed.size(); i < members.size(); ++i) renamed.push_back(members[i]);
    return renamed;
}

bool JsonHelper::JsonToObject(std::string& out, const Json::Value& value) {
    if (value.isString()) {
        out = value.asString();
        return true;
    }
    if (value.isNull()) {
        out.clear();
        return true;
    }
    // A number or an object is kept as its compact text.
    if (value.isNumeric() || value.isObject()) return JsonUtil::ConvertJsonToString(value, out);
    return false;
}

namespace {

// Takes the value only when it has the member's JSON kind.
template <typename T, typename Is, typename As>
bool Take(T& out, const Json::Value& value, Is is, As as) {
    if (!(value.*is)()) return false;
    out = static_cast<T>((value.*as)());
    return true;
}

}  // namespace

bool JsonHelper::JsonToObject(bool& out, const Json::Value& value) {
    return Take(out, value, &Json::Value::isBool, &Json::Value::asBool);
}

bool JsonHelper::JsonToObject(uint64_t& out, const Json::Value& value) {
    return Take(out, value, &Json::Value::isUInt64, &Json::Value::asUInt64);
}

bool JsonHelper::JsonToObject(uint32_t& out, const Json::Value& value) {
    return Take(out, value, &Json::Value::isUInt, &Json::Value::asUInt);
}

bool JsonHelper::JsonToObject(int64_t& out, const Json::Value& value) {
    return Take(out, value, &Json::Value::isInt64, &Json::Value::asInt64);
}

const Json::Value* JsonHelper::Follow(const Json::Value& root,
                                      const std::vector<std::string>& keyPath) {
    const Json::Value* at = &root;
    for (const auto& key : keyPath) {
        if (!at->isObject() || !at->isMember(key)) return nullptr;
        at = &(*at)[key];
    }
    return at;
}

bool JsonHelper::ToText(const Json::Value& json, std::string& text) {
    return JsonUtil::ConvertJsonToString(json, text);
}

}  // namespace zelkor::tessel
