// The text view of an inspection: a plain indented rendering of whatever JSON
// tree the inspectors built, so a new subtree shows up without code here.
#pragma once

#include <json/json.h>

#include <string>

namespace zelkor::tessel::image {

// Objects as "key: value" lines (members in key order), nested values
// indented by two, array items as "- value"; strings unquoted.
std::string RenderJsonText(const Json::Value& value);

}  // namespace zelkor::tessel::image
