#pragma once
// A pipe for talking to a child, never inherited by any other child.

namespace corvid::process::macos::details {

/// Opens a pipe (ends[0] reads, ends[1] writes) whose ends are close-on-exec from the moment
/// any child of the module could see them. Returns 0 or the error number.
int openClosedOnExecPipe(int ends[2]);

}  // namespace corvid::process::macos::details
