#pragma once
// Runs a shell command line and collects what it prints.

#include <string>

namespace corvid::process::macos::details {

/// Runs cmd through the shell and appends its standard output to out (out is not cleared).
/// True when the shell exited normally with 0, and also when the pipe could not be opened at
/// all: callers treat an unstartable command like one that printed nothing. False when closing
/// the pipe failed or the command ended with a non-zero status or by a signal.
bool cmdPopen(const std::string& cmd, std::string& out);

}  // namespace corvid::process::macos::details
