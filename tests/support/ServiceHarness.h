// A service object on the simulated host, as the control manager would run
// it: constructed with its log on a temporary drive, started, talked to over
// real loopback sockets, stopped, and destroyed once its threads are gone.
#pragma once

#include "service/VexorPrintingService.h"
#include "support/LogCapture.h"

#include <memory>

namespace testsupport {

// Builds the service object with the channel of every line it logs
// recorded, including the lines of its constructor, which sets the service's
// own log settings first: the construction is held at its first event until
// the recorder is attached again. Rethrows what the constructor throws.
std::unique_ptr<VexorPrintingService> makeServiceRecordingChannels(LogCapture& log);

class ServiceHarness {
public:
    // Makes the log directory and the service object; the host's waits run
    // at `timeScale` of real time. A tenth by default, so that the worker's
    // one-second wait, which a stop sits out, costs a tenth of a second.
    explicit ServiceHarness(double timeScale = 0.1);
    ~ServiceHarness();

    VexorPrintingService& service() { return *service_; }
    const LogCapture& log() const { return log_; }

    // OnStart, then waits until the command socket listens.
    void start();
    // OnStart only.
    void startWithoutWaiting();
    // OnStop; false if it threw.
    bool stop();
    // Waits until no work item of the service runs any more.
    bool waitForThreadsToEnd(unsigned timeoutMs = 10000);
    // Destroys the service object now, after its threads have ended.
    void destroy();

private:
    LogCapture log_;
    std::unique_ptr<VexorPrintingService> service_;
    bool stopped_ = false;
};

}  // namespace testsupport
