// The blackbox service's configuration block: three u32 switches at
// config_offset.
#include <android-base/logging.h>
#include <json/json.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include "common/default/service/BlackboxImpl.h"
#include "common/default/service/BlackboxPartition.h"
#include "modules/blackbox/BlackBoxIo.h"

namespace zelkor::tessel {
namespace {

using blackbox::blackbox_partition_config;

constexpr const char* kKeys[] = {"isUartEnable", "isForceQpstWhenFulldump",
                                 "isOEMDebugUartLogLevel"};

// The switch a key names, matched exactly; null for any other key.
uint32_t* Switch(blackbox_partition_config* config, const std::string& key) {
    uint32_t* switches[] = {&config->isUartEnable, &config->isForceQpstWhenFulldump,
                            &config->isOEMDebugUartLogLevel};
    for (size_t i = 0; i < 3; ++i) {
        if (key.size() == strlen(kKeys[i]) && memcmp(key.data(), kKeys[i], key.size()) == 0) {
            return switches[i];
        }
    }
    return nullptr;
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
    object[kKeys[0]] = access.config.isUartEnable;
    object[kKeys[1]] = access.config.isForceQpstWhenFulldump;
    object[kKeys[2]] = access.config.isOEMDebugUartLogLevel;
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
    const uint32_t* value = Switch(&access.config, key);
    if (value == nullptr) {
        LOG(ERROR) << "unknown blackbox config key: " << key;
        return ndk::ScopedAStatus::fromStatus(STATUS_INVALID_OPERATION);
    }
    *result = static_cast<int32_t>(*value);
    AddBookkeeping(caller, "getBlackboxConfig");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus BlackboxImpl::setAllBlackboxConfig(const std::string& caller,
                                                      const std::string& json, int32_t* result) {
    *result = 0;
    ConfigAccess access;
    if (!access.Load("blackbox_partition_config")) return ndk::ScopedAStatus::fromStatus(-1);
    Json::CharReaderBuilder builder;
    builder["stackLimit"] = 64;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value object;
    std::string errors;
    bool parsed = false;
    try {
        parsed = reader->parse(json.data(), json.data() + json.size(), &object, &errors);
    } catch (const std::exception& e) {  // jsoncpp throws past its depth limit
        errors = e.what();
    }
    if (!parsed || !object.isObject()) {
        LOG(ERROR) << "parser json failed, reason is " << (parsed ? "not an object" : errors);
        return ndk::ScopedAStatus::ok();
    }
    // A missing key counts as false; numbers count as booleans do in JSON
    // readers, anything else as false.
    blackbox_partition_config wanted{};
    uint32_t* fields[] = {&wanted.isUartEnable, &wanted.isForceQpstWhenFulldump,
                          &wanted.isOEMDebugUartLogLevel};
    for (size_t i = 0; i < 3; ++i) {
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
    uint32_t* stored = Switch(&access.config, key);
    if (stored == nullptr) {
        LOG(ERROR) << "unknown blackbox config key: " << key;
        return ndk::ScopedAStatus::fromStatus(STATUS_INVALID_OPERATION);
    }
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
