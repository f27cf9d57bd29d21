#pragma once
// A module library opened the way the client's host opens one: dlopen, then the two entry points.

#include <string>
#include <vector>

#include "corvid/IModule.h"

namespace helion::host {

class ModuleLibrary {
public:
    /// Opens path with RTLD_NOW and resolves CreateInstance and FreeInstance.
    /// Throws StartupError when the file is missing, not loadable, or lacks either symbol.
    explicit ModuleLibrary(const std::string& path);
    /// Closes the library; whatever it handed out must be gone by then.
    ~ModuleLibrary();

    ModuleLibrary(const ModuleLibrary&) = delete;
    ModuleLibrary& operator=(const ModuleLibrary&) = delete;

    const std::string& path() const { return path_; }
    corvid::IModule* createInstance() const { return create_(); }
    void freeInstance(corvid::IModule* module) const { free_(module); }

private:
    std::string path_;
    void* handle_ = nullptr;
    corvid::CreateInstanceFn create_ = nullptr;
    corvid::FreeInstanceFn free_ = nullptr;
};

/// Where to look for the module when no path is given, in order: the install layout beside the
/// executable, then, for a program run from the build tree it was built in, that tree's module.
std::vector<std::string> defaultModuleCandidates();

/// The first candidate that exists; throws StartupError naming all of them when none does.
std::string findDefaultModule();

}  // namespace helion::host
