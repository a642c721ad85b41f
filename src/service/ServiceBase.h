// The base of the service class. It turns the control manager's requests
// into calls of the virtual operations, reports each state change to the
// control manager, and writes an event-log entry for each transition.
#pragma once

#include "platform/win32.h"

class CServiceBase {
public:
    explicit CServiceBase(LPCWSTR serviceName);
    CServiceBase(const CServiceBase&) = delete;
    CServiceBase& operator=(const CServiceBase&) = delete;
    virtual ~CServiceBase() = default;

    // One transition each: report, call the operation, write the event, and
    // report the outcome.
    void Start(DWORD argc, LPWSTR* argv);
    void Stop();
    void Pause();
    void Continue();
    void Shutdown();

    LPCWSTR name() const { return serviceName; }
    void setStatusHandle(SERVICE_STATUS_HANDLE handle) { statusHandle = handle; }

protected:
    virtual void OnStart(DWORD argc, LPWSTR* argv) {
        (void)argc;
        (void)argv;
    }
    virtual void OnStop() {}
    virtual void OnPause() {}
    virtual void OnContinue() {}
    virtual void OnShutdown() {}

    // Sets the state and exit code and reports them; a pending state carries
    // the next check point, running and stopped carry 0.
    void setServiceStatus(DWORD state, DWORD exitCode = NO_ERROR);

    LPCWSTR serviceName;  // kept by reference
    SERVICE_STATUS serviceStatus;
    SERVICE_STATUS_HANDLE statusHandle;

private:
    struct TransitionSteps {
        DWORD pendingState;  // reported before the call; 0 for none
        DWORD successEvent;
        DWORD failureEvent;
        DWORD finalState;  // reported after a call that returned
    };
    template <class Call, class OnFailure>
    void runTransition(const TransitionSteps& steps, Call call, OnFailure onFailure);

    // Writes one entry with the service name and, if `error` is not 0, the
    // error number as insertion strings.
    void writeTransitionEvent(WORD type, DWORD eventId, DWORD error);
};

// The one service object of the process, set by the entry point before the
// dispatcher starts and read by the dispatcher's callbacks.
extern CServiceBase* theService;

// Callbacks registered with the control manager.
void WINAPI ServiceMain(DWORD argc, LPWSTR* argv);
void WINAPI ServiceCtrlHandler(DWORD control);
