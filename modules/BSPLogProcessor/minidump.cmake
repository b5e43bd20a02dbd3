# Minidump extraction, last-log files and trust-zone log translation.
find_package(ZLIB REQUIRED)
add_library(tessel_minidump STATIC
    BlockDeflate.cpp
    CompressMinidump.cpp
    DeleteLog.cpp
    DiagFiles.cpp
    DumpPartition.cpp
    DumpSlot.cpp
    HypLog.cpp
    KeyRegions.cpp
    LastLogHeader.cpp
    MinidumpFailHeader.cpp
    MinidumpSections.cpp
    PendingCrash.cpp
    Pmsg.cpp
    Printk.cpp
    RunState.cpp
    SectionStream.cpp
    TextSections.cpp
    TzDiag.cpp
    TzLogDict.cpp
)
tessel_target(tessel_minidump)
target_link_libraries(tessel_minidump PUBLIC tessel_blackbox tessel_platform tessel_utils android::base android::log
    PRIVATE ZLIB::ZLIB Threads::Threads)
