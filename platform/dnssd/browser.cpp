#include "platform/dnssd/browser.h"

#include <cassert>
#include <utility>

namespace quillbox {

namespace {

/// The part of a browser that belongs to the handlers' queue: sets that are already queued when the
/// browser is destroyed are still delivered.
struct Reports {
    Browser::ResultsChangedHandler resultsChanged;
    Browser::StateUpdateHandler stateUpdate;
    Browser::State state = Browser::State::Setup;
    std::error_code error;
    std::vector<ServiceEndpoint> services;

    void setState(Browser::State next, std::error_code nextError)
    {
        if (state == Browser::State::Cancelled || (state == next && error == nextError))
            return;
        state = next;
        error = nextError;
        if (stateUpdate)
            stateUpdate(state, error);
    }

    void handle(const DnsSd::BrowseUpdate& update)
    {
        using UpdateState = DnsSd::BrowseUpdate::State;
        switch (update.state) {
        case UpdateState::Waiting:
            return setState(Browser::State::Waiting, update.error);
        case UpdateState::Failed:
            return setState(Browser::State::Failed, update.error);
        case UpdateState::Ready:
            setState(Browser::State::Ready, {});
            return setServices(update.services);
        }
    }

    void setServices(const std::vector<ServiceEndpoint>& next)
    {
        if (state == Browser::State::Cancelled || services == next)
            return;
        services = next;
        if (resultsChanged)
            resultsChanged(Browser::Results(services.begin(), services.end()));
    }
};

class DnsSdBrowser final : public Browser {
public:
    DnsSdBrowser(DnsSd& backend, std::string serviceType)
        : dnsSd(backend), type(std::move(serviceType))
    {
    }
    DnsSdBrowser(const DnsSdBrowser&) = delete;
    DnsSdBrowser& operator=(const DnsSdBrowser&) = delete;

    void setResultsChangedHandler(ResultsChangedHandler handler) override
    {
        assert(!queue);
        reports->resultsChanged = std::move(handler);
    }

    void setStateUpdateHandler(StateUpdateHandler handler) override
    {
        assert(!queue);
        reports->stateUpdate = std::move(handler);
    }

    void start(std::shared_ptr<DispatchQueue> handlerQueue) override
    {
        assert(!queue);
        queue = std::move(handlerQueue);
        if (isCancelled)
            return reportCancelled();
        subscription =
            dnsSd.browse(type, queue, [reports = reports](const DnsSd::BrowseUpdate& update) {
                reports->handle(update);
            });
    }

    void cancel() override
    {
        if (std::exchange(isCancelled, true))
            return;
        subscription = nullptr;
        if (queue)
            reportCancelled();
    }

private:
    void reportCancelled()
    {
        queue->async([reports = reports] { reports->setState(State::Cancelled, {}); });
    }

    DnsSd& dnsSd;
    const std::string type;
    const std::shared_ptr<Reports> reports = std::make_shared<Reports>();
    std::shared_ptr<DispatchQueue> queue;
    std::unique_ptr<DnsSd::Subscription> subscription;
    bool isCancelled = false;
};

} // namespace

std::shared_ptr<Browser> makeBrowser(DnsSd& dnsSd, std::string type)
{
    return std::make_shared<DnsSdBrowser>(dnsSd, std::move(type));
}

} // namespace quillbox
