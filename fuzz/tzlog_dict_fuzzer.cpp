// The trust-zone log dictionary and the translation it drives: the input is
// cut at "\n#\n" into the dictionary file ("id:module:format" lines) and a
// trust-zone log ("[time](id args...)" lines).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "FuzzRoot.h"
#include "modules/BSPLogProcessor/minidump/TzLogDict.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::FuzzRoot& root = fuzz::FuzzRoot::Get();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t cut = input.find("\n#\n");
    const std::string_view dict = input.substr(0, cut);
    const std::string_view log =
            cut == std::string_view::npos ? std::string_view() : input.substr(cut + 3);
    static const bool folder = [&root] {
        return mkdir(root.Host("/vendor").c_str(), 0755) == 0 &&
               mkdir(root.Host("/vendor/etc").c_str(), 0755) == 0;
    }();
    (void)folder;
    root.Put(Minidump::kTzlogDictPath, reinterpret_cast<const uint8_t*>(dict.data()), dict.size());
    Minidump::load_tzlog_dict();
    const int out = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Minidump::translate_tzlog(out, log.data(), log.size());
    close(out);
    return 0;
}
