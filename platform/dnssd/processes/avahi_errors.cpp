#include "platform/dnssd/processes/avahi_errors.h"

#include <avahi-common/error.h>

namespace quillbox::dnssd {

DnsSdError dnsSdErrorOfAvahi(int error)
{
    if (isAvahiUnreachable(error))
        return DnsSdError::EngineUnavailable;
    switch (error) {
    case AVAHI_ERR_COLLISION:
        return DnsSdError::NameTaken;
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_HOST_NAME:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
        return DnsSdError::InvalidName;
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_SERVICE_SUBTYPE:
        return DnsSdError::InvalidType;
    case AVAHI_ERR_NOT_PERMITTED:
    case AVAHI_ERR_ACCESS_DENIED:
        return DnsSdError::NotPermitted;
    case AVAHI_ERR_TOO_MANY_CLIENTS:
    case AVAHI_ERR_TOO_MANY_OBJECTS:
    case AVAHI_ERR_TOO_MANY_ENTRIES:
        return DnsSdError::TooManyEntries;
    case AVAHI_ERR_NOT_FOUND:
    case AVAHI_ERR_TIMEOUT:
        return DnsSdError::NotFound;
    default:
        return DnsSdError::Internal;
    }
}

bool isAvahiUnreachable(int error)
{
    return error == AVAHI_ERR_DISCONNECTED || error == AVAHI_ERR_NO_DAEMON
           || error == AVAHI_ERR_DBUS_ERROR || error == AVAHI_ERR_BAD_STATE;
}

} // namespace quillbox::dnssd
