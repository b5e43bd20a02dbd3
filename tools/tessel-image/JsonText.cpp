#include "tools/tessel-image/JsonText.h"

namespace zelkor::tessel::image {
namespace {

bool IsContainer(const Json::Value& value) {
    return value.isObject() || value.isArray();
}

std::string Scalar(const Json::Value& value) {
    if (value.isObject()) return "{}";
    if (value.isArray()) return "[]";
    if (value.isNull()) return "null";
    if (value.isBool()) return value.asBool() ? "true" : "false";
    if (value.isUInt64()) return std::to_string(value.asUInt64());
    if (value.isInt64()) return std::to_string(value.asInt64());
    return value.asString();
}

void Render(const Json::Value& value, size_t indent, std::string* out) {
    const std::string pad(indent, ' ');
    auto line = [&](const std::string& head, const Json::Value& child) {
        if (IsContainer(child) && !child.empty()) {
            *out += pad + head + "\n";
            Render(child, indent + 2, out);
        } else {
            *out += pad + head + " " + Scalar(child) + "\n";
        }
    };
    if (value.isObject()) {
        for (const auto& name : value.getMemberNames()) line(name + ":", value[name]);
    } else if (value.isArray()) {
        for (const auto& item : value) line("-", item);
    } else {
        *out += pad + Scalar(value) + "\n";
    }
}

}  // namespace

std::string RenderJsonText(const Json::Value& value) {
    std::string out;
    Render(value, 0, &out);
    return out;
}

}  // namespace zelkor::tessel::image
