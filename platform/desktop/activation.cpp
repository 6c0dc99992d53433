#include "platform/desktop/activation.h"

#include "platform/desktop/copy_protocol.h"

#include <QByteArray>

namespace quillbox {

std::string activationTokenOfEnvironment()
{
    for (const char* name : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"}) {
        std::string token = qgetenv(name).toStdString();
        if (copy_protocol::isToken(token))
            return token;
    }
    return {};
}

} // namespace quillbox
