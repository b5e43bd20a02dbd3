#include "utils/StringUtil.h"

namespace zelkor::tessel {

std::string StringUtil::TrimStr(const std::string& str, char c) {
    size_t first = str.find_first_not_of(c);
    if (first == std::string::npos) return "";
    size_t last = str.find_last_not_of(c);
    return str.substr(first, last - first + 1);
}

bool StringUtil::StartsWith(const std::string& str, const std::string& prefix) {
    return prefix.size() <= str.size() && str.compare(0, prefix.size(), prefix) == 0;
}

bool StringUtil::EndsWith(const std::string& str, const std::string& suffix) {
    return suffix.size() <= str.size() &&
           str.compare(str.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void StringUtil::getTailPath(std::string& path, int count) {
    if (count < 1) return;
    size_t slash = std::string::npos;
    for (int i = 0; i < count; ++i) {
        // A slash at the very front leaves nothing further left to search.
        if (slash == 0) return;
        slash = path.rfind('/', slash == std::string::npos ? slash : slash - 1);
        if (slash == std::string::npos) return;
    }
    path.erase(0, slash + 1);
}

}  // namespace zelkor::tessel
