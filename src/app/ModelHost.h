#pragma once

#include "app/Platform.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "context/ActiveApplicationContext.h"
#include "model/AppModel.h"
#include "observer/HttpTransport.h"

#include <functional>
#include <memory>

namespace ostrel {

/// Builds the model over the platform, with the threads, the clock and the transport that it runs on. Main thread;
/// reads settings and secrets, and starts the observer.
class ModelHost
{
public:
    /// @param terminate called once the model has quit
    ModelHost(const Platform &platform, std::function<void()> terminate);
    ModelHost(const ModelHost &) = delete;
    ModelHost &operator=(const ModelHost &) = delete;
    ~ModelHost();

    AppModel &model() { return *m_model; }
    Clock &clock() { return m_clock; }

private:
    std::unique_ptr<AppModel> makeModel(const Platform &platform, std::function<void()> terminate);

    SystemClock m_clock;
    ActiveApplicationContext m_context;
    std::unique_ptr<HttpTransport> m_transport;
    SerialQueue m_sampleQueue;
    SerialQueue m_contextQueue;
    SerialQueue m_observerQueue;
    SerialQueue m_worker;
    std::unique_ptr<AppModel> m_model;
};

} // namespace ostrel
