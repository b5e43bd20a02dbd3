# The blackbox partition: header pass, dotting ring, kernel boot log copy.
add_library(tessel_blackbox STATIC
    BlackBoxDefaults.cpp
    BlackBoxDotting.cpp
    BlackBoxHeaders.cpp
    BlackBoxHwinfo.cpp
    BlackBoxIo.cpp
    BlackBoxKmsg.cpp
    BlackBoxRead.cpp
    KmsgRecords.cpp
)
tessel_target(tessel_blackbox)
target_link_libraries(tessel_blackbox PUBLIC tessel_platform)
