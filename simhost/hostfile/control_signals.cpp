// On a machine whose control manager started the service, a stop request
// comes from outside the process: SIGTERM and SIGINT stand for it here.
// SIGUSR1 asks for the state file while the service runs.
#include "simhost/advapi32/advapi32.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/hostfile/host_sections.h"

#include <pthread.h>
#include <signal.h>

#include <string>
#include <thread>

namespace simhost {

void startControlSignalBridge(const std::string& stateFilePath) {
    const bool stopControls = advapi32::startedByControlManager();
    const bool stateOnRequest = !stateFilePath.empty();
    if (!stopControls && !stateOnRequest) return;
    // Blocked here, before any other thread exists, so that every thread
    // inherits the mask and only the bridge receives the signals.
    sigset_t bridged;
    sigemptyset(&bridged);
    if (stopControls) {
        sigaddset(&bridged, SIGTERM);
        sigaddset(&bridged, SIGINT);
    }
    if (stateOnRequest) sigaddset(&bridged, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &bridged, nullptr);
    std::thread([bridged, stateFilePath] {
        for (;;) {
            int received = 0;
            if (sigwait(&bridged, &received) != 0) return;
            if (received == SIGUSR1)
                writeStateFileOrReport(stateFilePath);
            else
                advapi32::deliverControl(SERVICE_CONTROL_STOP);
        }
    }).detach();
}

}  // namespace simhost
