#pragma once

namespace quillbox::dnssd {

/// One of Avahi's libraries, loaded at run time and kept loaded until the process ends.
///
/// libavahi-client and libavahi-core 0.8 both define `avahi_entry_group_free`, with different
/// arguments, and call it themselves: in a process that loads both, one library calls the other's
/// function and crashes. So the program links neither: it loads libavahi-client, and its engine
/// process loads libavahi-core.
class AvahiLibrary final {
public:
    explicit AvahiLibrary(const char* name);

    /// Whether the library was loaded and all functions were found.
    bool isComplete() const { return complete; }

    template <class F> void find(F*& function, const char* name)
    {
        function = reinterpret_cast<F*>(symbol(name));
    }

private:
    void* symbol(const char* name);

    void* handle;
    bool complete;
};

} // namespace quillbox::dnssd
