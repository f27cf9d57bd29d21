# Shared compile settings: every project target links helion_settings.
add_library(helion_settings INTERFACE)
add_library(HelionPromote::settings ALIAS helion_settings)
target_compile_options(helion_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wno-unused-parameter
    $<$<BOOL:${HELION_WARNINGS_AS_ERRORS}>:-Werror>)
# The module's portable branches on Linux too, so that they are built and tested here.
if(HELION_POSIX_FALLBACKS)
    target_compile_definitions(helion_settings INTERFACE HELION_POSIX_FALLBACKS)
endif()

if(HELION_SANITIZERS)
    target_compile_options(helion_settings INTERFACE
        -fsanitize=${HELION_SANITIZERS} -fno-omit-frame-pointer)
    target_link_options(helion_settings INTERFACE -fsanitize=${HELION_SANITIZERS})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # GCC 12 with sanitizers at -O2 reports std::regex's own std::function members as maybe
        # uninitialised: a known false positive inside libstdc++.
        target_compile_options(helion_settings INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()
if(HELION_BUILD_FUZZ)
    # Coverage feedback for libFuzzer in every library the fuzzers link.
    target_compile_options(helion_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# helion_include_as(<target> <folder>): the target's headers, and only they, as "<folder>/X.h".
# Each target gets a directory of its own holding a link to its folder, so that including a
# header of a target that is not linked fails to compile instead of reaching across the layers.
function(helion_include_as target folder)
    set(root "${PROJECT_BINARY_DIR}/include/${target}")
    get_filename_component(parent "${root}/${folder}" DIRECTORY)
    file(MAKE_DIRECTORY "${parent}")
    file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${folder}" "${root}/${folder}" SYMBOLIC)
    get_target_property(kind ${target} TYPE)
    if(kind STREQUAL "INTERFACE_LIBRARY")
        target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${root}>)
    else()
        target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
    endif()
endfunction()

# helion_library(NAME <target> [OBJECT|SHARED] [INCLUDE_AS <folder>|NONE] SOURCES ... DEPS ...):
# one library per folder, its headers included as "<folder>/X.h", by default the folder it is
# declared in.
function(helion_library name)
    cmake_parse_arguments(ARG "OBJECT;SHARED" "INCLUDE_AS" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
    set(kind STATIC)
    if(ARG_OBJECT)
        set(kind OBJECT)
    elseif(ARG_SHARED)
        set(kind SHARED)
    endif()
    add_library(${name} ${kind} ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC helion_settings ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    if(NOT ARG_INCLUDE_AS)
        file(RELATIVE_PATH ARG_INCLUDE_AS "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
    endif()
    if(NOT ARG_INCLUDE_AS STREQUAL "NONE")
        helion_include_as(${name} "${ARG_INCLUDE_AS}")
    endif()
endfunction()

# helion_module(<target> <constants-target> [OUTPUT_NAME name]): the loadable module over one
# set of constants. The request-model registration is linked as objects so it cannot be dropped.
function(helion_module target constants)
    cmake_parse_arguments(ARG "" "OUTPUT_NAME" "" ${ARGN})
    add_library(${target} MODULE
        "${PROJECT_SOURCE_DIR}/SdpPromote/Exports.cpp"
        $<TARGET_OBJECTS:${constants}>)
    target_link_libraries(${target} PRIVATE helion_sdp_promote helion_model)
    helion_module_linkage(${target})
    if(ARG_OUTPUT_NAME)
        set_target_properties(${target} PROPERTIES OUTPUT_NAME ${ARG_OUTPUT_NAME})
    endif()
endfunction()

# helion_module_linkage(<target>): how the platform's linker makes a module that a host loads with
# dlopen(): only CreateInstance and FreeInstance exported, every symbol resolved at link time, the
# logging library found one directory up once installed. Each platform's flags live here only.
# The Apple branch has never been built (see docs/PORTING.md).
function(helion_module_linkage target)
    if(APPLE)
        set(exports "${PROJECT_SOURCE_DIR}/SdpPromote/module.exports")
        target_link_options(${target} PRIVATE "LINKER:-exported_symbols_list,${exports}")
        set(refuse_undefined "LINKER:-undefined,error")
        set_target_properties(${target} PROPERTIES SUFFIX ".dylib" INSTALL_RPATH "@loader_path/..")
    else()
        set(exports "${PROJECT_SOURCE_DIR}/SdpPromote/module.map")
        target_link_options(${target} PRIVATE "LINKER:--version-script=${exports}")
        set(refuse_undefined "LINKER:--no-undefined")
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/..")
    endif()
    # Clang leaves the sanitizer runtime to the program that loads the module.
    if(NOT (HELION_SANITIZERS AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
        target_link_options(${target} PRIVATE "${refuse_undefined}")
    endif()
    set_target_properties(${target} PROPERTIES LINK_DEPENDS "${exports}")
endfunction()
