// Names shared by the log manager and the programs that talk to it: its
// broadcasts, its module name, the roots of the folders it keeps and the
// form of a dated entry's name.
#pragma once

namespace zelkor::tessel::logmgr {

inline constexpr char kActionConfigChanged[] = "zelkor.halvex.logmgr.config_changed";
inline constexpr char kActionConfigAppend[] = "zelkor.halvex.logmgr.config_append";
inline constexpr char kActionVendorIsReady[] = "zelkor.halvex.logmgr.vendor_is_ready";
inline constexpr char kModuleName[] = "Halvex.LogManager";
inline constexpr char kNonVendorRoot[] = "/data/kestralog/bsp";
inline constexpr char kVendorRoot[] = "/data/vendor/bsplog";
inline constexpr char kConfigFileName[] = "bsp_log_config.json";
// The other side's reuse root, declared for it; this daemon moves to its own.
inline constexpr char kNonVendorReuseRoot[] = "/mnt/reuse/kestralog/bsp";
inline constexpr char kReuseRoot[] = "/mnt/reuse/bsplog";
// year-month-day_hour-minute-second
inline constexpr char kDatedNameFormat[] = "%d-%d-%d_%d-%d-%d";

}  // namespace zelkor::tessel::logmgr
