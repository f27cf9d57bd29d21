#pragma once
// This process's environment, as posix_spawn() hands it on.

namespace corvid::process::macos::details {

/// The current environment block (environ). Apple's linker does not let a loadable module
/// refer to environ itself, so there it comes from _NSGetEnviron().
char** processEnvironment();

}  // namespace corvid::process::macos::details
