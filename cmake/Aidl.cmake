# AIDL interfaces for the host build: the same .aidl files the device build
# compiles, run through the NDK backend of the aidl tool at build time. The
# generated code lives only in the build tree.
#
#   tessel_aidl_library(<target>
#       BASE <dir>                      # import root: <dir>/<package path>/<Name>.aidl
#       SOURCES <relative .aidl>...     # e.g. vendor/zelkor/hardware/tessel/common/ITesselImpl.aidl
#       [INCLUDES <dir>...]             # further import roots
#       [LIBS <target>...])             # libraries of imported interfaces
#
# builds a static library <target> of the generated code, linked to
# binder_ndk, whose generated headers (#include <aidl/<package path>/<Name>.h>)
# are on its PUBLIC include path.
find_program(TESSEL_AIDL aidl REQUIRED)

# The files the generator writes for one .aidl: <Name>.cpp and, for both
# interfaces and parcelables, <Name>.h plus Bp/Bn headers named after the
# type without its interface "I" prefix (IFoo -> BpFoo, Item -> BpItem).
function(_tessel_aidl_outputs gen stem out_cpp out_headers)
    get_filename_component(name "${stem}" NAME)
    get_filename_component(package_dir "${stem}" DIRECTORY)
    set(short "${name}")
    if(name MATCHES "^I[A-Z]")
        string(SUBSTRING "${name}" 1 -1 short)
    endif()
    set(header_dir "${gen}/include/aidl/${package_dir}")
    set(${out_cpp} "${gen}/src/${stem}.cpp" PARENT_SCOPE)
    set(${out_headers}
        "${header_dir}/${name}.h" "${header_dir}/Bp${short}.h" "${header_dir}/Bn${short}.h"
        PARENT_SCOPE)
endfunction()

function(tessel_aidl_library target)
    cmake_parse_arguments(A "" "BASE" "SOURCES;INCLUDES;LIBS" ${ARGN})
    if(NOT A_BASE OR NOT A_SOURCES)
        message(FATAL_ERROR "tessel_aidl_library(${target}): BASE and SOURCES are required")
    endif()
    get_filename_component(base "${A_BASE}" ABSOLUTE)
    set(gen "${CMAKE_CURRENT_BINARY_DIR}/${target}.aidl")

    set(import_flags "-I${base}")
    foreach(dir IN LISTS A_INCLUDES)
        get_filename_component(dir "${dir}" ABSOLUTE)
        list(APPEND import_flags "-I${dir}")
    endforeach()

    # A change to any interface of the library may change what the others
    # generate (imports), so each output depends on all of them.
    set(all_aidl "")
    foreach(source IN LISTS A_SOURCES)
        list(APPEND all_aidl "${base}/${source}")
    endforeach()

    set(generated_cpp "")
    foreach(source IN LISTS A_SOURCES)
        string(REGEX REPLACE "\\.aidl$" "" stem "${source}")
        _tessel_aidl_outputs("${gen}" "${stem}" cpp headers)
        add_custom_command(
            OUTPUT ${cpp} ${headers}
            COMMAND ${TESSEL_AIDL} --lang=ndk ${import_flags}
                    -o "${gen}/src" -h "${gen}/include" "${base}/${source}"
            DEPENDS ${all_aidl}
            COMMENT "Generating NDK code for ${source}"
            VERBATIM)
        list(APPEND generated_cpp ${cpp})
    endforeach()

    add_library(${target} STATIC ${generated_cpp})
    target_include_directories(${target} PUBLIC "${gen}/include")
    target_link_libraries(${target} PUBLIC binder_ndk ${A_LIBS})
    # Generated code is not ours to fix: build it without -Werror and quiet
    # the generator's habits (unused parameters, labels after gotos).
    target_compile_options(${target} PRIVATE -Wno-unused-parameter -Wno-unused-label)
endfunction()
