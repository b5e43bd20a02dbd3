# Debian ships the Android liblog, libbase and libcutils ports under a private
# library folder with headers under /usr/include/android; expose them as
# imported targets so project code links them like any other library.
set(ANDROID_HOST_LIBDIR "/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android")
set(ANDROID_HOST_INCDIR "/usr/include/android")

function(tessel_import_android_lib target libname header)
    find_library(${target}_LIBRARY NAMES ${libname} PATHS ${ANDROID_HOST_LIBDIR} NO_DEFAULT_PATH)
    find_path(${target}_INCLUDE NAMES ${header} PATHS ${ANDROID_HOST_INCDIR} NO_DEFAULT_PATH)
    if(NOT ${target}_LIBRARY OR NOT ${target}_INCLUDE)
        message(FATAL_ERROR "Android host library ${libname} not found; run 'make deps'")
    endif()
    add_library(android::${libname} SHARED IMPORTED GLOBAL)
    set_target_properties(android::${libname} PROPERTIES
        IMPORTED_LOCATION "${${target}_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${ANDROID_HOST_INCDIR}")
endfunction()

tessel_import_android_lib(ANDROID_LOG log android/log.h)
tessel_import_android_lib(ANDROID_BASE base android-base/logging.h)
tessel_import_android_lib(ANDROID_CUTILS cutils cutils/android_get_control_file.h)
set_property(TARGET android::base APPEND PROPERTY INTERFACE_LINK_LIBRARIES android::log)

# The libraries live outside the loader's default path.
list(APPEND CMAKE_BUILD_RPATH "${ANDROID_HOST_LIBDIR}")
list(APPEND CMAKE_INSTALL_RPATH "${ANDROID_HOST_LIBDIR}")
