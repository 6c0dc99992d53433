#pragma once

#include "platform/desktop/file_descriptor.h"

#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <string>
#include <string_view>

namespace quillbox {

/// The permission to come to the front that the desktop gave this process when it started it
/// (XDG_ACTIVATION_TOKEN, else DESKTOP_STARTUP_ID); empty when there is none of use. The toolkit
/// takes it out of the environment, so this is asked before there is an application object.
std::string activationTokenOfEnvironment();

/// Whether the text is fit to be handed on: printable ASCII without blanks, of sensible length.
bool isActivationToken(std::string_view text);

/// Asks the copy behind `connection` to come to the front, and waits for its answer, a second at
/// the most.
void requestActivation(int connection, const std::string& token);

/// Hears the requests of other copies of this user's, on the main thread. Anything else that comes
/// is not answered.
class ActivationListener final : public QObject {
public:
    using Requested = std::function<void(const std::string& token)>;

    /// Takes the listening socket over.
    ActivationListener(FileDescriptor listening, Requested whenRequested);

    ActivationListener(const ActivationListener&) = delete;
    ActivationListener& operator=(const ActivationListener&) = delete;
    ~ActivationListener() override = default;

private:
    class Client;

    void accept();
    void pause();

    FileDescriptor socket;
    QSocketNotifier notifier;
    Requested requested;
};

} // namespace quillbox
