#pragma once

#include <QObject>
#include <QVariantMap>
#include <functional>
#include <utility>

namespace quillbox {

/// Receives the signal Response of org.freedesktop.portal.Request, with which a desktop portal
/// answers: the response (0: done, 1: refused by the user, 2: ended in some other way) and results
/// that depend on the request. An object with a slot, because QtDBus delivers signals to nothing
/// else.
class PortalResponse final : public QObject {
    Q_OBJECT

public:
    using Handler = std::function<void(uint response, const QVariantMap& results)>;

    /// The handler may be called several times, from the event loop.
    explicit PortalResponse(Handler whenReceived) : handler(std::move(whenReceived)) {}

    Q_SLOT void receive(uint response, const QVariantMap& results) { handler(response, results); }

private:
    const Handler handler;
};

} // namespace quillbox
