# Every dependency comes from the distribution: CMake packages where they exist, pkg-config otherwise.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem system)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(rttr CONFIG REQUIRED)
find_package(RapidJSON REQUIRED)
find_package(OpenSSL 3.0 REQUIRED)
pkg_check_modules(THRIFT REQUIRED IMPORTED_TARGET thrift)
pkg_check_modules(MINIZIP REQUIRED IMPORTED_TARGET minizip)
find_program(THRIFT_COMPILER thrift REQUIRED)

# RapidJSON's config exports only variables; wrap them in a target.
if(NOT TARGET helion::rapidjson)
    add_library(helion_rapidjson INTERFACE)
    add_library(helion::rapidjson ALIAS helion_rapidjson)
    target_include_directories(helion_rapidjson SYSTEM INTERFACE ${RapidJSON_INCLUDE_DIRS} ${RAPIDJSON_INCLUDE_DIRS})
endif()
