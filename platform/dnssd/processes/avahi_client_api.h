#pragma once

#include "platform/dnssd/processes/avahi_api.h"

#include <memory>
#include <optional>

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>

namespace quillbox::dnssd {

/// The functions used from libavahi-client, named as they are there, without the `avahi_` prefix.
struct AvahiClientLibrary {
    decltype(avahi_client_new)* client_new = nullptr;
    decltype(avahi_client_free)* client_free = nullptr;
    decltype(avahi_client_errno)* client_errno = nullptr;
    decltype(avahi_client_get_host_name_fqdn)* client_get_host_name_fqdn = nullptr;
    decltype(avahi_client_get_domain_name)* client_get_domain_name = nullptr;
    decltype(avahi_service_browser_new)* service_browser_new = nullptr;
    decltype(avahi_service_browser_free)* service_browser_free = nullptr;
    decltype(avahi_record_browser_new)* record_browser_new = nullptr;
    decltype(avahi_record_browser_free)* record_browser_free = nullptr;
    decltype(avahi_entry_group_new)* entry_group_new = nullptr;
    decltype(avahi_entry_group_free)* entry_group_free = nullptr;
    decltype(avahi_entry_group_commit)* entry_group_commit = nullptr;
    decltype(avahi_entry_group_add_address)* entry_group_add_address = nullptr;
    decltype(avahi_entry_group_add_record)* entry_group_add_record = nullptr;
    decltype(avahi_entry_group_add_service_strlst)* entry_group_add_service_strlst = nullptr;
};

/// Empty when the library is not installed or lacks a function.
std::optional<AvahiClientLibrary> loadAvahiClientLibrary();

/// The API of avahi-daemon, over D-Bus. `library` and `client` must outlive the API and its
/// objects.
std::unique_ptr<AvahiApi> makeAvahiClientApi(const AvahiClientLibrary& library,
                                             AvahiClient& client);

} // namespace quillbox::dnssd
