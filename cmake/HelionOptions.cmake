# Project options. Tests, tools and benchmarks are on only when this is the top-level project.
string(COMPARE EQUAL "${CMAKE_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}" HELION_TOP_LEVEL)

option(HELION_BUILD_TOOLS "Build the reference host, client and package tool" ON)
cmake_dependent_option(HELION_BUILD_TESTS "Build the test suite" ON "HELION_TOP_LEVEL" OFF)
cmake_dependent_option(HELION_BUILD_BENCH "Build the benchmarks" ON "HELION_TOP_LEVEL" OFF)
option(HELION_BUILD_FUZZ "Build the libFuzzer targets (clang with a sanitizer only)" OFF)
option(HELION_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(HELION_POSIX_FALLBACKS "Use the module's portable POSIX branches instead of Linux-only calls" OFF)
set(HELION_SANITIZERS "" CACHE STRING "Sanitizers to build with, e.g. address,undefined")

set(HELION_RESOURCES_DIR "/Library/corvid/SDP/Helion.app/Contents/Resources"
    CACHE PATH "The application bundle's Resources directory; the portal root and the diagnosis tool live below it")
set(HELION_PORTAL_PUBLIC_KEY "${PROJECT_SOURCE_DIR}/keys/dev-portal-public.pem"
    CACHE FILEPATH "PEM file with the RSA-2048 public key that portal packages are verified against")

# Packaging: package.sh turns HELION_PACKAGING on, which generates the man pages and refuses the
# development key unless HELION_ALLOW_DEV_KEY says that a throw-away package is meant.
option(HELION_PACKAGING "Configure for the Debian packages (man pages; deployment key required)" OFF)
option(HELION_ALLOW_DEV_KEY "Let a packaging build trust the development key" OFF)

# A dlopen()ed module has no SONAME, so it lives in a private directory, not in the linker's path.
set(HELION_INSTALL_MODULEDIR "${CMAKE_INSTALL_LIBDIR}/helion-promote")
