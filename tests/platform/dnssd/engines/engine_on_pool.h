#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/dnssd/engine/engine_process.h"
#include "platform/standard_error_log.h"

#include <functional>
#include <memory>
#include <utility>

namespace quillbox::dnssd {

/// An engine with a pool of its own, for tests on another thread. The pool's threads, and the
/// engine's processes, are in the network of the thread that creates this object.
class EngineOnPool final {
public:
    using Factory =
        std::function<std::unique_ptr<Engine>(const std::shared_ptr<DispatchQueue>&, Log&)>;

    explicit EngineOnPool(const Factory& make) : engine(make(queue, *log)) {}
    EngineOnPool(const EngineOnPool&) = delete;
    EngineOnPool& operator=(const EngineOnPool&) = delete;
    ~EngineOnPool() { stop(); }

    void start(Engine::EventHandler handler)
    {
        queue->async([this, handler = std::move(handler)] { engine->start(handler); });
    }

    /// Also inside the handler.
    void send(Request request)
    {
        queue->async([this, request = std::move(request)] { engine->send(request); });
    }

    /// The first thing that `stop` does: ends the thread that has started the engine's process.
    void shutDownPool() { pool.shutdown(); }

    /// As the program does when it ends. Idempotent.
    void stop()
    {
        shutDownPool();
        engine->stop();
    }

private:
    const std::unique_ptr<Log> log = makeStandardErrorLog({});
    DispatchPool pool;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("engine", QualityOfService::Utility);
    const std::unique_ptr<Engine> engine;
};

inline std::unique_ptr<EngineOnPool> onPool(EngineProcessOptions options)
{
    return std::make_unique<EngineOnPool>(
        [&options](const std::shared_ptr<DispatchQueue>& queue, Log& log) {
            return makeEngineProcess(queue, log, options);
        });
}

inline std::unique_ptr<EngineOnPool> makeDaemonEngine()
{
    return onPool({.program = engineProgram(kDaemonProgram), .name = "daemon"});
}

inline std::unique_ptr<EngineOnPool> makeEmbeddedEngine()
{
    return onPool({.program = engineProgram(kResponderProgram), .name = "embedded"});
}

} // namespace quillbox::dnssd
