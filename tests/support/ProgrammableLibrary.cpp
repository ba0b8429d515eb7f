#include "ProgrammableLibrary.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace {

void* OpenCopy(int copy) {
    const std::string path =
        MDH_COMPILED_DIR "/libfixture_programmable_" + std::to_string(copy) + ".so";
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return handle;
}

}  // namespace

ProgrammableLibrary::ProgrammableLibrary(int copy)
    : handle(OpenCopy(copy)),
      setLibrary(reinterpret_cast<SetLibrary>(dlsym(handle, "programmable_set_library"))) {
    if (setLibrary == nullptr) {
        dlclose(handle);
        throw std::runtime_error("programmable_set_library is missing");
    }
}

ProgrammableLibrary::~ProgrammableLibrary() {
    dlclose(handle);
}
