// VINTF manifest reading.
#include "platform/host/binder_ndk/VintfManifest.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace zelkor::tessel::binder {
namespace {

namespace fs = std::filesystem;

// Manifests are small; anything bigger is not one.
constexpr uintmax_t kMaxManifestBytes = 1 << 20;

std::string_view Trim(std::string_view text) {
    const char* kSpace = " \t\r\n";
    size_t first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(kSpace);
    return text.substr(first, last - first + 1);
}

std::string StripComments(std::string_view xml) {
    std::string out;
    size_t pos = 0;
    while (pos < xml.size()) {
        size_t open = xml.find("<!--", pos);
        if (open == std::string_view::npos) {
            out.append(xml.substr(pos));
            break;
        }
        out.append(xml.substr(pos, open - pos));
        size_t close = xml.find("-->", open + 4);
        if (close == std::string_view::npos) break;
        pos = close + 3;
    }
    return out;
}

// The position of the next "<tag" that really is that tag (not a longer name).
size_t FindOpenTag(std::string_view text, std::string_view tag, size_t from) {
    const std::string open = "<" + std::string(tag);
    for (size_t pos = text.find(open, from); pos != std::string_view::npos;
         pos = text.find(open, pos + 1)) {
        size_t after = pos + open.size();
        if (after < text.size() && (text[after] == '>' || text[after] == '/' ||
                                    std::isspace(static_cast<unsigned char>(text[after])))) {
            return pos;
        }
    }
    return std::string_view::npos;
}

struct Element {
    std::string_view attributes;
    std::string_view body;
    size_t end;  // just past the element
};

// The next <tag ...>body</tag> at or after `from`.
bool NextElement(std::string_view text, std::string_view tag, size_t from, Element* element) {
    size_t start = FindOpenTag(text, tag, from);
    if (start == std::string_view::npos) return false;
    size_t tagEnd = text.find('>', start);
    if (tagEnd == std::string_view::npos) return false;
    const size_t attrStart = start + 1 + tag.size();
    element->attributes = text.substr(attrStart, tagEnd - attrStart);
    if (!element->attributes.empty() && element->attributes.back() == '/') {
        element->body = {};
        element->end = tagEnd + 1;
        return true;
    }
    const std::string close = "</" + std::string(tag) + ">";
    size_t closePos = text.find(close, tagEnd + 1);
    if (closePos == std::string_view::npos) return false;
    element->body = text.substr(tagEnd + 1, closePos - tagEnd - 1);
    element->end = closePos + close.size();
    return true;
}

std::vector<std::string_view> Texts(std::string_view text, std::string_view tag) {
    std::vector<std::string_view> out;
    Element element;
    for (size_t pos = 0; NextElement(text, tag, pos, &element); pos = element.end) {
        out.push_back(Trim(element.body));
    }
    return out;
}

std::string Attribute(std::string_view attributes, std::string_view name) {
    for (size_t pos = attributes.find(name); pos != std::string_view::npos;
         pos = attributes.find(name, pos + 1)) {
        if (pos > 0 && !std::isspace(static_cast<unsigned char>(attributes[pos - 1]))) continue;
        size_t eq = attributes.find_first_not_of(" \t\r\n", pos + name.size());
        if (eq == std::string_view::npos || attributes[eq] != '=') continue;
        size_t quote = attributes.find_first_not_of(" \t\r\n", eq + 1);
        if (quote == std::string_view::npos ||
            (attributes[quote] != '"' && attributes[quote] != '\'')) {
            continue;
        }
        size_t close = attributes.find(attributes[quote], quote + 1);
        if (close == std::string_view::npos) return {};
        return std::string(attributes.substr(quote + 1, close - quote - 1));
    }
    return {};
}

void ParseHal(std::string_view body, std::vector<std::string>* instances) {
    // The HAL's own <name> and <fqname> sit outside its <interface> blocks.
    std::string halLevel;
    std::vector<std::string_view> interfaces;
    size_t pos = 0;
    Element element;
    while (NextElement(body, "interface", pos, &element)) {
        size_t start = FindOpenTag(body, "interface", pos);
        halLevel.append(body.substr(pos, start - pos));
        interfaces.push_back(element.body);
        pos = element.end;
    }
    halLevel.append(body.substr(pos));
    std::vector<std::string_view> names = Texts(halLevel, "name");
    if (names.empty() || names.front().empty()) return;
    const std::string package(names.front());
    for (std::string_view fqname : Texts(halLevel, "fqname")) {
        size_t scope = fqname.rfind("::");
        if (scope != std::string_view::npos) fqname.remove_prefix(scope + 2);
        if (fqname.find('/') == std::string_view::npos) continue;
        instances->push_back(package + "." + std::string(fqname));
    }
    for (std::string_view block : interfaces) {
        std::vector<std::string_view> interfaceNames = Texts(block, "name");
        if (interfaceNames.empty() || interfaceNames.front().empty()) continue;
        for (std::string_view instance : Texts(block, "instance")) {
            if (instance.empty()) continue;
            instances->push_back(package + "." + std::string(interfaceNames.front()) + "/" +
                                 std::string(instance));
        }
    }
}

void ParseFile(const fs::path& path, std::vector<std::string>* instances) {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) > kMaxManifestBytes ||
        error) {
        return;
    }
    std::ifstream in(path, std::ios::binary);
    std::string xml((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ParseVintfManifest(xml, instances);
}

}  // namespace

void ParseVintfManifest(std::string_view xml, std::vector<std::string>* instances) {
    const std::string text = StripComments(xml);
    Element hal;
    for (size_t pos = 0; NextElement(text, "hal", pos, &hal); pos = hal.end) {
        if (Attribute(hal.attributes, "format") == "aidl") ParseHal(hal.body, instances);
    }
}

std::vector<std::string> DeclaredAidlInstances(const std::string& root) {
    std::vector<std::string> instances;
    for (const char* partition : {"vendor", "odm", "system"}) {
        const fs::path base = fs::path(root) / partition / "etc" / "vintf";
        ParseFile(base / "manifest.xml", &instances);
        std::error_code error;
        std::vector<fs::path> fragments;
        for (fs::directory_iterator it(base / "manifest", error), end; !error && it != end;
             it.increment(error)) {
            if (it->path().extension() == ".xml") fragments.push_back(it->path());
        }
        std::sort(fragments.begin(), fragments.end());
        for (const fs::path& fragment : fragments) ParseFile(fragment, &instances);
    }
    return instances;
}

}  // namespace zelkor::tessel::binder
