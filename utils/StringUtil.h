// Small string helpers for paths and configuration texts.
#pragma once

#include <string>

namespace zelkor::tessel {

class StringUtil {
  public:
    // Copy of `str` without the leading and trailing runs of `c`; other
    // characters, white space included, are kept.
    static std::string TrimStr(const std::string& str, char c);
    static bool StartsWith(const std::string& str, const std::string& prefix);
    static bool EndsWith(const std::string& str, const std::string& suffix);
    // Keeps the last `count` '/'-separated components of `path`: "/a/b/d" with 2
    // becomes "b/d". Leaves the path alone when it has fewer than `count`
    // slashes or when `count` is below 1.
    static void getTailPath(std::string& path, int count);
};

}  // namespace zelkor::tessel
