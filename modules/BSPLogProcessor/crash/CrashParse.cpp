#include "modules/BSPLogProcessor/crash/CrashParse.h"

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

void parse_crash_from_powerupreason(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                                    std::string& reason, std::string& detail) {
    LogLines node(kPowerupReasonNode);
    std::string_view text;
    if (!node.ok() || !node.next(&text)) {
        MD_PRINT("not found powerup_reason");
        return;
    }
    // A reset the PMIC could not attribute: no crash log, but no normal boot.
    if (text.substr(0, 5) == "other") {
        CrashResult{main_type, sub_type, reason, detail}.setDetail(CRASH_OTHER_HARDRESET,
                                                                   "other by hardreset");
    }
}

void crash_parse(crash_main_type_enum& main_type, crash_type_enum& sub_type, std::string& reason,
                 std::string& detail) {
    const CrashResult out{main_type, sub_type, reason, detail};
    main_type = CRASH_MAIN_NONE;
    sub_type = CRASH_NONE;
    mutable_crash_stacktrace().clear();

    parse_crash_from_uefilog(main_type, sub_type, reason, detail);
    // The dump's files belong to the previous boot only when this run took a
    // new dump; otherwise they are left over from an older crash.
    if (!out.found() && platform::GetBoolProperty(kMinidumpValidProperty, false)) {
        parse_crash_from_warmreset_xbllog(main_type, sub_type, reason, detail);
        if (!out.found()) parse_crash_from_minidumplog(main_type, sub_type, reason, detail);
    }
    if (!out.found()) parse_crash_from_powerupreason(main_type, sub_type, reason, detail);
    if (!out.found() && detect_xbl_sc_log_partion()) {
        out.setDetail(CRASH_DUMP_PROCESS_FAIL, "crash happened,but dump process fail");
    }
    MD_LOGI("crash_parse: main %u, sub %u, reason %s, detail %s\n", main_type, sub_type,
            reason.c_str(), detail.c_str());
}

}  // namespace zelkor::tessel::Minidump
