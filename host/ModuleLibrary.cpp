#include "host/ModuleLibrary.h"

#include <dlfcn.h>

#include <boost/filesystem.hpp>

#include "host/StartupError.h"

namespace helion::host {

namespace fs = boost::filesystem;

namespace {
constexpr const char* kModuleFile = "libHelionPromote.so";
}

ModuleLibrary::ModuleLibrary(const std::string& path) : path_(path) {
    boost::system::error_code error;
    const auto status = fs::status(path, error);
    if (!fs::exists(status)) {
        throw StartupError("module '" + path + "' does not exist");
    }
    if (!fs::is_regular_file(status)) {
        throw StartupError("module '" + path + "' is not a regular file");
    }
    // dlopen searches the library path for names without a slash; the operator meant this file.
    const std::string openPath = path.find('/') == std::string::npos ? "./" + path : path;
    handle_ = ::dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* reason = ::dlerror();
        throw StartupError("cannot load module '" + path + "': " + (reason ? reason : "unknown"));
    }
    create_ = reinterpret_cast<corvid::CreateInstanceFn>(::dlsym(handle_, "CreateInstance"));
    free_ = reinterpret_cast<corvid::FreeInstanceFn>(::dlsym(handle_, "FreeInstance"));
    if (create_ == nullptr || free_ == nullptr) {
        ::dlclose(handle_);
        handle_ = nullptr;
        throw StartupError("'" + path + "' is not a module: it does not export " +
                           (create_ == nullptr ? "CreateInstance" : "FreeInstance"));
    }
}

ModuleLibrary::~ModuleLibrary() {
    if (handle_ != nullptr) {
        ::dlclose(handle_);
    }
}

std::vector<std::string> defaultModuleCandidates() {
    std::vector<std::string> candidates;
    boost::system::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        return candidates;
    }
    const fs::path prefix = self.parent_path().parent_path();
    candidates.push_back((prefix / HELION_INSTALL_LIBDIR / kModuleFile).string());
    if (fs::path(HELION_INSTALL_LIBDIR) != "lib") {
        candidates.push_back((prefix / "lib" / kModuleFile).string());
    }
    // An installed copy must never pick up whatever a build tree on this machine holds.
    const fs::path buildDir = fs::canonical(HELION_BUILD_TREE_HOST_DIR, error);
    if (!error && fs::equivalent(self.parent_path(), buildDir, error) && !error) {
        candidates.emplace_back(HELION_BUILD_TREE_MODULE);
    }
    return candidates;
}

std::string findDefaultModule() {
    const auto candidates = defaultModuleCandidates();
    std::string tried;
    for (const auto& candidate : candidates) {
        boost::system::error_code error;
        if (fs::is_regular_file(candidate, error)) {
            return candidate;
        }
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw StartupError("no module found (looked for " + tried + "); pass --module PATH");
}

}  // namespace helion::host
