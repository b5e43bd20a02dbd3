#include "framework/Intent.h"

namespace zelkor::tessel {

ExtraValue Intent::getExtra(const std::string& key) const {
    Extras extras = getExtras();
    auto it = extras.find(key);
    if (it == extras.end()) return Json::Value();
    return it->second;
}

}  // namespace zelkor::tessel
