#include "support/ServiceHarness.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/threads.h"

#include <chrono>
#include <exception>
#include <stdexcept>
#include <thread>

namespace testsupport {

std::unique_ptr<VexorPrintingService> makeServiceRecordingChannels(LogCapture& log) {
    simhost::Faults& faults = simhost::Host::get().faults();
    faults.blockCall("CreateEventW");
    std::unique_ptr<VexorPrintingService> service;
    std::exception_ptr thrown;
    std::thread constructor([&] {
        try {
            service = std::make_unique<VexorPrintingService>();
        } catch (...) {
            thrown = std::current_exception();
        }
    });
    // The first event comes right after the log settings and the version line.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (faults.blockedCount("CreateEventW") == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    log.recordChannels();
    faults.releaseCall("CreateEventW");
    constructor.join();
    if (thrown) std::rethrow_exception(thrown);
    return service;
}

ServiceHarness::ServiceHarness(double timeScale) : log_(false) {
    simhost::Host::get().setTimeScale(timeScale);
    service_ = makeServiceRecordingChannels(log_);
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
