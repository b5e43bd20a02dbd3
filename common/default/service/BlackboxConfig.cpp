// The blackbox service's configuration block: three u32 switches at
// config_offset.
#include <android-base/logging.h>
#include <json/json.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "common/default/service/BlackboxImpl.h"
#include "common/default/service/BlackboxPartition.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel {
namespace {

using blackbox::blackbox_partition_config;

constexpr const char* kKeys[] = {"isUartEnable", "isForceQpstWhenFulldump",
                                 "isOEMDebugUartLogLevel"};

// The switches in the order of kKeys.
std::array<uint32_t*, 3> Switches(blackbox_partition_config* config) {
    return {&config->isUartEnable, &config->isForceQpstWhenFulldump,
            &config->isOEMDebugUartLogLevel};
}

// The partition and its configuration block, read for one call.
struct ConfigAccess {
    android::base::unique_fd fd;
    int64_t offset = 0;
    blackbox_partition_config config{};

    // False (logged with `what`) when the partition or the block cannot be read.
    bool Load(const char* what) {
        fd = OpenBlackbox();
        if (!fd.ok()) return false;
        blackbox::BlackBoxHeaders headers;
        ReadBlackboxHeaders(fd.get(), &headers);
        offset = headers.control.config_offset;
        if (blackbox::read_at(fd.get(), offset, &config, sizeof(config)) !=
            static_cast<ssize_t>(sizeof(config))) {
            LOG(ERROR) << ":read " << what << " failed! error: " << strerror(errno);
            return false;
        }
        return true;
    }
    // The switch a key names, matched exactly; null (logged) for any other.
    uint32_t* Find(const std::string& key) {
        const std::array<uint32_t*, 3> switches = Switches(&config);
        for (size_t i = 0; i < switches.size(); ++i) {
            if (key == kKeys[i]) return switches[i];
        }
        LOG(ERROR) << "unknown blackbox config key: " << key;
        return nullptr;
    }
    bool Store() {
        if (blackbox::write_at(fd.get(), offset, &config, sizeof(config)) ==
            static_cast<ssize_t>(sizeof(config))) {
            return true;
        }
        LOG(ERROR) << ":write string failed! error: " << strerror(errno);
        return false;
    }
};

}  // namespace

ndk::ScopedAStatus BlackboxImpl::getAllBlackboxConfig(const std::string& caller,
                                                      std::string* result) {
    result->clear();
    ConfigAccess access;
    if (!access.Load("blackbox_partition_config")) return ndk::ScopedAStatus::fromStatus(-1);
    Json::Value object(Json::objectValue);
    const std::array<uint32_t*, 3> switches = Switches(&access.config);
    for (size_t i = 0; i < switches.size(); ++i) object[kKeys[i]] = *switches[i];
    *result = Json::FastWriter().write(object);
    LOG(INFO) << "_struct_obj_json to string: " << *result;
    AddBookkeeping(caller, "getAllBlackboxConfig");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::getBlackboxConfig(const std::string& caller,
                                                   const std::string& key, int32_t* result) {
    *result = -1;
    ConfigAccess access;
    if (!access.Load("initial_config")) return ndk::ScopedAStatus::fromStatus(-1);
    const uint32_t* value = access.Find(key);
    if (value == nullptr) return ndk::ScopedAStatus::fromStatus(STATUS_INVALID_OPERATION);
    *result = static_cast<int32_t>(*value);
    AddBookkeeping(caller, "getBlackboxConfig");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::setAllBlackboxConfig(const std::string& caller,
                                                      const std::string& json, int32_t* result) {
    *result = 0;
    ConfigAccess access;
    if (!access.Load("blackbox_partition_config")) return ndk::ScopedAStatus::fromStatus(-1);
    Json::Value object;
    std::string errors;
    const bool parsed = JsonUtil::ConvertStringToJson(json, object, &errors);
    if (!parsed || !object.isObject()) {
        LOG(ERROR) << "parser json failed, reason is " << (parsed ? "not an object" : errors);
        return ndk::ScopedAStatus::ok();
    }
    // A missing key counts as false; numbers count as booleans do in JSON
    // readers, anything else as false.
    blackbox_partition_config wanted{};
    const std::array<uint32_t*, 3> fields = Switches(&wanted);
    for (size_t i = 0; i < fields.size(); ++i) {
        const Json::Value& value = object[kKeys[i]];
        *fields[i] = value.isConvertibleTo(Json::booleanValue) && value.asBool() ? 1 : 0;
    }
    if (memcmp(&wanted, &access.config, sizeof(wanted)) == 0) {
        LOG(INFO) << "isUartEnable not changed";
    } else {
        LOG(INFO) << "config changed: " << wanted.isUartEnable << "|"
                  << wanted.isForceQpstWhenFulldump << "|" << wanted.isOEMDebugUartLogLevel;
        access.config = wanted;
        if (!access.Store()) return ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_ERROR);
    }
    *result = 1;
    AddBookkeeping(caller, "setAllBlackboxConfig");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::setBlackboxConfig(const std::string& caller,
                                                   const std::string& key, int32_t value,
                                                   int32_t* result) {
    *result = 0;
    ConfigAccess access;
    if (!access.Load("initial_config")) return ndk::ScopedAStatus::fromStatus(-1);
    uint32_t* stored = access.Find(key);
    if (stored == nullptr) return ndk::ScopedAStatus::fromStatus(STATUS_INVALID_OPERATION);
    if (*stored != static_cast<uint32_t>(value)) {
        *stored = static_cast<uint32_t>(value);
        LOG(INFO) << key << " = " << value;
        if (!access.Store()) return ndk::ScopedAStatus::fromStatus(STATUS_UNKNOWN_ERROR);
    }
    *result = 1;
    AddBookkeeping(caller, "setBlackboxConfig");
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
