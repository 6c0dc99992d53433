#pragma once

#include "platform/dnssd/processes/avahi_api.h"

#include <memory>
#include <optional>

#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>
#include <avahi-core/rr.h>

namespace quillbox::dnssd {

/// The functions used from libavahi-core, named as they are there, without the `avahi_` prefix.
struct AvahiServerLibrary {
    decltype(avahi_set_log_function)* set_log_function = nullptr;
    decltype(avahi_server_config_init)* server_config_init = nullptr;
    decltype(avahi_server_config_free)* server_config_free = nullptr;
    decltype(avahi_server_new)* server_new = nullptr;
    decltype(avahi_server_free)* server_free = nullptr;
    decltype(avahi_server_errno)* server_errno = nullptr;
    decltype(avahi_server_get_host_name_fqdn)* server_get_host_name_fqdn = nullptr;
    decltype(avahi_server_get_domain_name)* server_get_domain_name = nullptr;
    decltype(avahi_key_new)* key_new = nullptr;
    decltype(avahi_key_unref)* key_unref = nullptr;
    decltype(avahi_s_service_browser_new)* s_service_browser_new = nullptr;
    decltype(avahi_s_service_browser_free)* s_service_browser_free = nullptr;
    decltype(avahi_s_record_browser_new)* s_record_browser_new = nullptr;
    decltype(avahi_s_record_browser_free)* s_record_browser_free = nullptr;
    decltype(avahi_s_entry_group_new)* s_entry_group_new = nullptr;
    decltype(avahi_s_entry_group_free)* s_entry_group_free = nullptr;
    decltype(avahi_s_entry_group_commit)* s_entry_group_commit = nullptr;
    decltype(avahi_record_new_full)* record_new_full = nullptr;
    decltype(avahi_record_unref)* record_unref = nullptr;
    decltype(avahi_rdata_parse)* rdata_parse = nullptr;
    decltype(avahi_server_add)* server_add = nullptr;
    decltype(avahi_server_add_address)* server_add_address = nullptr;
    decltype(avahi_server_add_service_strlst)* server_add_service_strlst = nullptr;
};

/// Empty when the library is not installed or lacks a function.
std::optional<AvahiServerLibrary> loadAvahiServerLibrary();

/// The API of an mDNS responder within this process. `library` and `server` must outlive the API
/// and its objects.
std::unique_ptr<AvahiApi> makeAvahiServerApi(const AvahiServerLibrary& library,
                                             AvahiServer& server);

} // namespace quillbox::dnssd
