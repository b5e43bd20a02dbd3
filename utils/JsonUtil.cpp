#include "utils/JsonUtil.h"

#include <memory>

namespace zelkor::tessel {

bool JsonUtil::ConvertJsonToString(const Json::Value& value, std::string& out) {
    // The FastWriter format: no indentation, no blanks, one trailing newline.
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    // Text goes out as UTF-8, not as \u escapes: every reader of these
    // messages takes UTF-8, and the escapes would only make them longer.
    builder["emitUTF8"] = true;
    std::string text;
    try {
        text = Json::writeString(builder, value);
    } catch (const std::exception&) {
        return false;
    }
    out = std::move(text);
    out.push_back('\n');
    return true;
}

bool JsonUtil::ConvertStringToJson(const std::string& text, Json::Value& out, std::string* errors) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value parsed;
    std::string reason;
    // Nesting past the reader's depth limit is thrown, not returned: text from
    // a client or a file must not end the process.
    bool ok = false;
    try {
        ok = reader->parse(text.data(), text.data() + text.size(), &parsed, &reason);
    } catch (const std::exception& e) {
        reason = e.what();
    }
    if (!ok) {
        if (errors != nullptr) *errors = reason;
        return false;
    }
    out = std::move(parsed);
    return true;
}

}  // namespace zelkor::tessel
