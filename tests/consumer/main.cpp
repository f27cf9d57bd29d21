// Loads the installed module as a host does and prints its GUID.
#include <dlfcn.h>

#include <iostream>

#include "corvid/IModule.h"

int main() {
    void* handle = ::dlopen(HELION_MODULE_FILE, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::cerr << "dlopen failed: " << ::dlerror() << std::endl;
        return 1;
    }
    auto create = reinterpret_cast<corvid::CreateInstanceFn>(::dlsym(handle, "CreateInstance"));
    if (create == nullptr || create() == nullptr) {
        std::cerr << "no module from CreateInstance" << std::endl;
        return 1;
    }
    std::cout << create()->moduleGuid() << std::endl;
    return 0;
}
