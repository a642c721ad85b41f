#include "support/ServiceHarness.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/threads.h"

#include <stdexcept>

namespace testsupport {

ServiceHarness::ServiceHarness(double timeScale) : log_(false) {
    simhost::Host::get().setTimeScale(timeScale);
    service_ = std::make_unique<VexorPrintingService>();
}

ServiceHarness::~ServiceHarness() {
    if (service_ && !stopped_) stop();
    destroy();
}

void ServiceHarness::startWithoutWaiting() { service_->OnStart(0, nullptr); }

void ServiceHarness::start() {
    startWithoutWaiting();
    if (!log_.waitFor("listen returned success", 10000))
        throw std::runtime_error("the command socket did not come up");
}

bool ServiceHarness::stop() {
    stopped_ = true;
    try {
        service_->OnStop();
        return true;
    } catch (...) {
        return false;
    }
}

bool ServiceHarness::waitForThreadsToEnd(unsigned timeoutMs) { return simhost::waitForIdleWorkItems(timeoutMs); }

void ServiceHarness::destroy() {
    if (!service_) return;
    waitForThreadsToEnd();
    service_.reset();
}

}  // namespace testsupport
