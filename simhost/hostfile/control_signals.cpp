// On a machine whose control manager started the service, a stop request
// comes from outside the process: SIGTERM and SIGINT stand for it here.
#include "simhost/advapi32/advapi32.h"
#include "simhost/hostfile/host_sections.h"

#include <pthread.h>
#include <signal.h>

#include <thread>

namespace simhost {

void startControlSignalBridge() {
    if (!advapi32::startedByControlManager()) return;
    // Blocked here, before any other thread exists, so that every thread
    // inherits the mask and only the bridge receives the signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::thread([stopSignals] {
        for (;;) {
            int received = 0;
            if (sigwait(&stopSignals, &received) != 0) return;
            advapi32::deliverControl(SERVICE_CONTROL_STOP);
        }
    }).detach();
}

}  // namespace simhost
