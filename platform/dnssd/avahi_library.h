#pragma once

namespace quillbox::dnssd {

/// One of Avahi's libraries, taken in at run time and kept to the end of the process.
///
/// libavahi-client and libavahi-core 0.8 both define `avahi_entry_group_free`, with different
/// arguments, and call it themselves: in a process that has both, one of them calls the other's and
/// dies of it. So the program is linked with neither. It loads the one for the daemon, and its
/// engine process the other.
class AvahiLibrary final {
public:
    explicit AvahiLibrary(const char* name);

    /// Whether it is there, with all that was looked for.
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
