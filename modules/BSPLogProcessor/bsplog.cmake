# The BSPLogProcessor module and the boot run it drives. Its registrar is a
# static object nothing refers to: a program that hosts the module links this
# library whole, e.g.
#   target_link_libraries(tesseld PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,tessel_bsplog>")
add_library(tessel_bsplog STATIC
    BSPLogProcessor.cpp
    MinidumpMain.cpp
)
tessel_target(tessel_bsplog)
target_link_libraries(tessel_bsplog PUBLIC tessel_blackbox tessel_minidump tessel_crash
    tessel_history tessel_pellora tessel_framework)
