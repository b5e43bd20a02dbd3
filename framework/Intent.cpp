#include "framework/Intent.h"

namespace zelkor::tessel {

ExtraValue Intent::getExtra(const std::string& key) const {
    auto it = mExtras.find(key);
    if (it == mExtras.end()) return Json::Value();
    return it->second;
}

}  // namespace zelkor::tessel
