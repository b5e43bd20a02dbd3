# Crash history and crash reporting: the history ring on flash, "md_history",
# the crash event, the boot dotting record and the dump history fallback.
add_library(tessel_history STATIC
    BootDotting.cpp
    CrashHistory.cpp
    CrashHistoryRing.cpp
    CrashReport.cpp
    FallbackHistory.cpp
    MdHistory.cpp
    RecordCrashHistory.cpp
    RecordText.cpp
)
tessel_target(tessel_history)
target_link_libraries(tessel_history PUBLIC tessel_blackbox tessel_minidump tessel_crash
    tessel_pellora tessel_platform android::base android::log)
