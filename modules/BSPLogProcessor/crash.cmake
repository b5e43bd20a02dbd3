# Crash classification of the previous boot, and the boot-index retention of
# the UEFI logs that ends the boot run.
add_library(tessel_crash STATIC
    BootIndexFiles.cpp
    CpuErrorDetectors.cpp
    CrashCalltrace.cpp
    CrashKeywords.cpp
    CrashLines.cpp
    CrashParse.cpp
    CrashRecord.cpp
    CrashTypes.cpp
    EdacDiag.cpp
    GeneralLogUtils.cpp
    KmsgCrash.cpp
    TzCrash.cpp
    UefiCrash.cpp
    XblCrash.cpp
    XblScLog.cpp
)
tessel_target(tessel_crash)
target_link_libraries(tessel_crash PUBLIC tessel_minidump tessel_platform tessel_utils android::base android::log)
