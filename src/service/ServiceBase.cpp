#include "service/ServiceBase.h"

#include "foundation/StaticLogger.h"

#include <atomic>
#include <string>

CServiceBase* theService = nullptr;

namespace {

// Counts the reports of pending states for the whole process; never reset.
std::atomic<DWORD> checkPoint{1};

constexpr DWORD kAcceptStopAndShutdown = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;

// Event ids of the transitions: success and failure.
constexpr DWORD kStartSucceeded = 111, kStartFailed = 0xC0000070;
constexpr DWORD kStopSucceeded = 113, kStopFailed = 0xC0000072;
constexpr DWORD kPauseSucceeded = 115, kPauseFailed = 0xC0000074;
constexpr DWORD kContinueSucceeded = 117, kContinueFailed = 0xC0000076;

}  // namespace

CServiceBase::CServiceBase(LPCWSTR serviceName) : serviceName(serviceName), serviceStatus(), statusHandle(nullptr) {
    serviceStatus.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    serviceStatus.dwCurrentState = SERVICE_START_PENDING;
    serviceStatus.dwControlsAccepted = kAcceptStopAndShutdown;
}

void CServiceBase::setServiceStatus(DWORD state, DWORD exitCode) {
    serviceStatus.dwCurrentState = state;
    serviceStatus.dwWin32ExitCode = exitCode;
    serviceStatus.dwWaitHint = 0;
    const bool settled = state == SERVICE_RUNNING || state == SERVICE_STOPPED;
    serviceStatus.dwCheckPoint = settled ? 0 : checkPoint++;
    SetServiceStatus(statusHandle, &serviceStatus);
}

void CServiceBase::writeTransitionEvent(WORD type, DWORD eventId, DWORD error) {
    HANDLE source = RegisterEventSourceW(nullptr, serviceName);
    if (!source) return;
    const std::wstring errorText = std::to_wstring(error);
    LPCWSTR strings[2] = {serviceName, errorText.c_str()};
    ReportEventW(source, type, 0, eventId, nullptr, error ? 2 : 1, 0, strings, nullptr);
    DeregisterEventSource(source);
}

// The success event carries the thread's last error as it stands after the
// operation, stale or not: nothing clears it before the call. On failure the
// failure event carries the thrown error, or the last error for anything
// else, and `onFailure` reports what the transition falls back to.
template <class Call, class OnFailure>
void CServiceBase::runTransition(const TransitionSteps& steps, Call call, OnFailure onFailure) {
    try {
        if (steps.pendingState) setServiceStatus(steps.pendingState);
        call();
        writeTransitionEvent(EVENTLOG_SUCCESS, steps.successEvent, GetLastError());
        setServiceStatus(steps.finalState);
    } catch (DWORD error) {
        writeTransitionEvent(EVENTLOG_ERROR_TYPE, steps.failureEvent, error);
        onFailure(error, true);
    } catch (...) {
        writeTransitionEvent(EVENTLOG_ERROR_TYPE, steps.failureEvent, GetLastError());
        onFailure(DWORD(0), false);
    }
}

void CServiceBase::Start(DWORD argc, LPWSTR* argv) {
    runTransition({SERVICE_START_PENDING, kStartSucceeded, kStartFailed, SERVICE_RUNNING},
                  [&] { OnStart(argc, argv); },
                  [&](DWORD error, bool thrown) { setServiceStatus(SERVICE_STOPPED, thrown ? error : 0); });
}

// A stop that fails goes back to the state before it, so the control
// manager never sees a stop hang in its pending state.
void CServiceBase::Stop() {
    const DWORD original = serviceStatus.dwCurrentState;
    runTransition({SERVICE_STOP_PENDING, kStopSucceeded, kStopFailed, SERVICE_STOPPED}, [&] { OnStop(); },
                  [&](DWORD, bool) { setServiceStatus(original); });
}

void CServiceBase::Pause() {
    runTransition({SERVICE_PAUSE_PENDING, kPauseSucceeded, kPauseFailed, SERVICE_PAUSED}, [&] { OnPause(); },
                  [&](DWORD, bool) { setServiceStatus(SERVICE_RUNNING); });
}

void CServiceBase::Continue() {
    runTransition({SERVICE_CONTINUE_PENDING, kContinueSucceeded, kContinueFailed, SERVICE_RUNNING},
                  [&] { OnContinue(); }, [&](DWORD, bool) { setServiceStatus(SERVICE_PAUSED); });
}

// Shutdown reports nothing before the call, and a failure leaves the status
// as it is and is logged: the machine is going down.
void CServiceBase::Shutdown() {
    runTransition({0, kStopSucceeded, kStopFailed, SERVICE_STOPPED}, [&] { OnShutdown(); },
                  [](DWORD error, bool thrown) {
                      if (thrown)
                          VX_LOG(kLogError, kWithLastError, 4, "Service Shutdown Error:%u", static_cast<unsigned>(error));
                      else
                          VX_LOG(kLogError, kWithLastError, 4, "Service failed to shut down.");
                  });
}

void WINAPI ServiceMain(DWORD argc, LPWSTR* argv) {
    SERVICE_STATUS_HANDLE handle = RegisterServiceCtrlHandlerW(theService->name(), ServiceCtrlHandler);
    if (!handle) throw GetLastError();
    theService->setStatusHandle(handle);
    theService->Start(argc, argv);
}

void WINAPI ServiceCtrlHandler(DWORD control) {
    switch (control) {
        case SERVICE_CONTROL_STOP:
            theService->Stop();
            break;
        case SERVICE_CONTROL_PAUSE:
            theService->Pause();
            break;
        case SERVICE_CONTROL_CONTINUE:
            theService->Continue();
            break;
        case SERVICE_CONTROL_SHUTDOWN:
            theService->Shutdown();
            break;
        default:
            break;
    }
}
