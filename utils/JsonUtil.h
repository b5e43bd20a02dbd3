// Text form of JSON values: compact one-line output, tolerant parsing.
#pragma once

#include <json/json.h>

#include <string>

namespace zelkor::tessel {

class JsonUtil {
  public:
    // Writes value as one compact line ending in a newline (the form every
    // peer of the internal channel and every report uses). Returns false and
    // leaves out unchanged when the value cannot be written.
    static bool ConvertJsonToString(const Json::Value& value, std::string& out);
    // Parses text into out; false (out unchanged) when the text is not JSON,
    // with the parser's reason in *errors when given.
    static bool ConvertStringToJson(const std::string& text, Json::Value& out,
                                    std::string* errors = nullptr);
};

}  // namespace zelkor::tessel
