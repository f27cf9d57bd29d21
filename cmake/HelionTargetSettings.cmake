# Shared compile settings: every project target links helion_settings.
add_library(helion_settings INTERFACE)
add_library(HelionPromote::settings ALIAS helion_settings)
target_compile_options(helion_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wno-unused-parameter
    $<$<BOOL:${HELION_WARNINGS_AS_ERRORS}>:-Werror>)
target_include_directories(helion_settings INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)

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

# helion_library(NAME <target> [OBJECT|SHARED] SOURCES ... DEPS ...): one library per folder.
function(helion_library name)
    cmake_parse_arguments(ARG "OBJECT;SHARED" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
    set(kind STATIC)
    if(ARG_OBJECT)
        set(kind OBJECT)
    elseif(ARG_SHARED)
        set(kind SHARED)
    endif()
    add_library(${name} ${kind} ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC helion_settings ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
endfunction()
