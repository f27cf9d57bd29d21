#include "process/ShellSpawn.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "process/platform/ChildDescriptors.h"
#include "process/platform/ProcessEnvironment.h"
#include "process/platform/SpawnExclusion.h"

namespace corvid::process::macos::details {
namespace {

// One posix_spawn object, destroyed again once its initialisation succeeded.
template <typename T, int (*Init)(T*), int (*Destroy)(T*)>
class SpawnObject {
public:
    SpawnObject() : error_(Init(&value_)) {}
    ~SpawnObject() {
        if (error_ == 0) {
            Destroy(&value_);
        }
    }
    SpawnObject(const SpawnObject&) = delete;
    SpawnObject& operator=(const SpawnObject&) = delete;

    T* get() { return &value_; }
    int error() const { return error_; }

private:
    T value_{};
    int error_;
};

using SpawnActions = SpawnObject<posix_spawn_file_actions_t, posix_spawn_file_actions_init,
                                 posix_spawn_file_actions_destroy>;
using SpawnAttributes =
    SpawnObject<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;

// Standard output from stdoutFd, and nothing open past standard error.
int prepare(SpawnActions& actions, int stdoutFd) {
    int error = actions.error();
    if (error == 0 && stdoutFd != STDOUT_FILENO) {
        error = posix_spawn_file_actions_adddup2(actions.get(), stdoutFd, STDOUT_FILENO);
    }
    if (error == 0) {
        error = closeAllButStandardStreams(actions.get());
    }
    return error;
}

// A host ignores SIGPIPE and blocks its stop signals for a signal thread; a child that kept
// either could neither die of a closed pipe nor be stopped.
int prepare(SpawnAttributes& attributes) {
    sigset_t defaults;
    sigset_t unblocked;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigemptyset(&unblocked);
    int error = attributes.error();
    if (error == 0) {
        error = posix_spawnattr_setsigdefault(attributes.get(), &defaults);
    }
    if (error == 0) {
        error = posix_spawnattr_setsigmask(attributes.get(), &unblocked);
    }
    if (error == 0) {
        error = posix_spawnattr_setflags(attributes.get(),
                                         POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    return error;
}

}  // namespace

int spawnShell(const std::string& cmd, int stdoutFd, pid_t& pid) {
    const SpawnExclusion exclusion;
    SpawnActions actions;
    SpawnAttributes attributes;
    if (const int error = prepare(actions, stdoutFd); error != 0) {
        return error;
    }
    if (const int error = prepare(attributes); error != 0) {
        return error;
    }
    char shell[] = "/bin/sh";
    char option[] = "-c";
    std::string command = cmd;
    char* argv[] = {shell, option, command.data(), nullptr};
    return posix_spawn(&pid, shell, actions.get(), attributes.get(), argv, processEnvironment());
}

int waitForChild(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

}  // namespace corvid::process::macos::details
