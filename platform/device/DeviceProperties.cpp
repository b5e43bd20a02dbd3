// Device side: the platform's own system properties.
#include <android-base/properties.h>

#include "platform/Properties.h"

namespace zelkor::tessel::platform {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    return android::base::GetProperty(key, default_value);
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    return android::base::GetBoolProperty(key, default_value);
}

bool SetProperty(const std::string& key, const std::string& value) {
    return android::base::SetProperty(key, value);
}

bool WaitForPropertyCreation(const std::string& key, std::chrono::milliseconds relative_timeout) {
    return android::base::WaitForPropertyCreation(key, relative_timeout);
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    return android::base::WaitForProperty(key, expected_value, relative_timeout);
}

}  // namespace zelkor::tessel::platform
