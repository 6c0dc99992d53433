#include "platform/dnssd/avahi_library.h"

#include <dlfcn.h>

namespace quillbox::dnssd {

AvahiLibrary::AvahiLibrary(const char* name)
    : handle(::dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)), complete(handle != nullptr)
{
}

void* AvahiLibrary::symbol(const char* name)
{
    void* address = handle == nullptr ? nullptr : ::dlsym(handle, name);
    complete = complete && address != nullptr;
    return address;
}

} // namespace quillbox::dnssd
