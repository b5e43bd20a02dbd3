// System properties. On a device these are the platform's properties; on a host
// they live in one store under the root, shared by every process using it.
#pragma once

#include <chrono>
#include <string>

namespace zelkor::tessel::platform {

std::string GetProperty(const std::string& key, const std::string& default_value);

// "1", "y", "yes", "on", "true" are true; "0", "n", "no", "off", "false" are
// false; anything else (or no value) gives the default.
bool GetBoolProperty(const std::string& key, bool default_value);

// False for an illegal name, a value too long for the property, or a
// read-only ("ro.") property that is already set.
bool SetProperty(const std::string& key, const std::string& value);

// Blocks until the property exists; false when the time limit passes first.
bool WaitForPropertyCreation(const std::string& key, std::chrono::milliseconds relative_timeout =
                                                             std::chrono::milliseconds::max());

// Blocks until the property holds `expected_value`; false on time-out.
bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout = std::chrono::milliseconds::max());

}  // namespace zelkor::tessel::platform
