#include "process/ShellSpawn.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace corvid::process::macos::details {
namespace {

class SpawnActions {
public:
    SpawnActions() { error_ = posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() {
        if (error_ == 0) {
            posix_spawn_file_actions_destroy(&actions_);
        }
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    int prepare(int stdoutFd) {
        if (error_ == 0 && stdoutFd != STDOUT_FILENO) {
            error_ = posix_spawn_file_actions_adddup2(&actions_, stdoutFd, STDOUT_FILENO);
        }
        if (error_ == 0) {
            error_ = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        }
        return error_;
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
    int error_ = 0;
};

class SpawnAttributes {
public:
    SpawnAttributes() { error_ = posix_spawnattr_init(&attributes_); }
    ~SpawnAttributes() {
        if (error_ == 0) {
            posix_spawnattr_destroy(&attributes_);
        }
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    // A host ignores SIGPIPE and blocks its stop signals for a signal thread; a child that kept
    // either could neither die of a closed pipe nor be stopped.
    int prepare() {
        sigset_t defaults;
        sigset_t unblocked;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        sigemptyset(&unblocked);
        if (error_ == 0) {
            error_ = posix_spawnattr_setsigdefault(&attributes_, &defaults);
        }
        if (error_ == 0) {
            error_ = posix_spawnattr_setsigmask(&attributes_, &unblocked);
        }
        if (error_ == 0) {
            error_ = posix_spawnattr_setflags(&attributes_,
                                              POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        }
        return error_;
    }
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
    int error_ = 0;
};

}  // namespace

int spawnShell(const std::string& cmd, int stdoutFd, pid_t& pid) {
    SpawnActions actions;
    SpawnAttributes attributes;
    if (const int error = actions.prepare(stdoutFd); error != 0) {
        return error;
    }
    if (const int error = attributes.prepare(); error != 0) {
        return error;
    }
    char shell[] = "/bin/sh";
    char option[] = "-c";
    std::string command = cmd;
    char* argv[] = {shell, option, command.data(), nullptr};
    return posix_spawn(&pid, shell, actions.get(), attributes.get(), argv, environ);
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
