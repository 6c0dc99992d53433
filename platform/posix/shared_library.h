#pragma once

#include <dlfcn.h>

namespace quillbox {

/// A library that is loaded at run time, and kept loaded until the process ends.
class SharedLibrary final {
public:
    explicit SharedLibrary(const char* name)
        : handle(::dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)), complete(handle != nullptr)
    {
    }

    /// Whether the library was loaded and all functions were found.
    bool isComplete() const { return complete; }

    template <class F> void find(F*& function, const char* name)
    {
        void* address = handle == nullptr ? nullptr : ::dlsym(handle, name);
        complete = complete && address != nullptr;
        function = reinterpret_cast<F*>(address);
    }

private:
    void* handle;
    bool complete;
};

} // namespace quillbox
