#include "service/VexorPrintingService.h"

#include "cleanup/PrinterReaper.h"
#include "drivers/DriverCatalogue.h"
#include "foundation/PolicySettings.h"
#include "foundation/ServiceLogging.h"
#include "foundation/StaticLogger.h"

#include <exception>
#include <memory>

namespace {

constexpr DWORD kStopWaitMs = 10000;
constexpr DWORD kSocketRetryMs = 5000;

// The block handed to the thread pool: which method to run on which object.
struct WorkItem {
    VexorPrintingService* service;
    void (VexorPrintingService::*body)();
};

DWORD WINAPI runWorkItem(LPVOID context) {
    std::unique_ptr<WorkItem> item(static_cast<WorkItem*>(context));
    (item->service->*item->body)();
    return 0;
}

void closeAndClear(HANDLE& handle) {
    if (handle) CloseHandle(handle);
    handle = nullptr;
}

}  // namespace

VexorPrintingService::VexorPrintingService()
    : CServiceBase(kServiceName),
      cmdSocket(INVALID_SOCKET),
      portCreatedMark(0),
      reapPending(0),
      stopping(0),
      stoppedEvent(nullptr),
      msgQueueEvent(nullptr),
      hMsgQueueMutex(nullptr),
      cleanupStopping(0),
      cleanupStoppedEvent(nullptr),
      cleanupWakeEvent(nullptr) {
    applyServiceLogSettings();
    std::wstring newLogFile;
    StaticLogger::OpenLogFile(newLogFile);
    VX_LOG(kLogNormal, kNoLastError, 4, "Service version:25.6.0.51414, Short Hash = 57230ca0d");

    // Creates one event, not signalled; on failure logs `failureText` with
    // the last error and throws it, which ends the construction.
    auto createEventOrThrow = [](BOOL manualReset, const char* failureText) {
        HANDLE event = CreateEventW(nullptr, manualReset, FALSE, nullptr);
        if (event) return event;
        VX_LOG(kLogError, kWithLastError, 4, "%s", failureText);
        throw GetLastError();
    };
    stoppedEvent = createEventOrThrow(TRUE, "CreateEvent failed");
    cleanupStoppedEvent = createEventOrThrow(TRUE, "Create printer cleanup stopped event failed");
    cleanupWakeEvent = createEventOrThrow(TRUE, "Create wake up printer cleanup thread event failed");
    msgQueueEvent = createEventOrThrow(FALSE, "CreateEvent failed");

    hMsgQueueMutex = CreateMutexW(nullptr, FALSE, nullptr);
    if (!hMsgQueueMutex) {
        // The object stands without a mutex; Winsock is not started either.
        VX_LOG(kLogError, kWithLastError, 4, "CreateMutex error");
        return;
    }

    WSADATA wsaData;
    if (WSAStartup(MAKEWORD(2, 2), &wsaData) != 0)
        VX_LOG(kLogNormal, kNoLastError, 5, "Error at WSAStartup() Error Code : %d", WSAGetLastError());
}

VexorPrintingService::~VexorPrintingService() {
    if (!stopping.load(std::memory_order_relaxed))
        VX_LOG(kLogError, kNoLastError, 6, "Destructor called but not stopped");
    for (auto it = driverInfoMap.begin(); it != driverInfoMap.end();) {
        delete it->second;
        it = driverInfoMap.erase(it);
    }
    closeAndClear(stoppedEvent);
    closeAndClear(cleanupStoppedEvent);
    closeAndClear(cleanupWakeEvent);
    closeAndClear(msgQueueEvent);
    closeAndClear(hMsgQueueMutex);
    WSACleanup();
    // The containers go with the object, but the connection records and the
    // requests they still hold are left alone: the process is ending, and
    // after a shutdown the socket and worker threads may still be using them.
}

void VexorPrintingService::startWorkItem(ThreadBody body) {
    WorkItem* item = new WorkItem{this, body};
    if (!QueueUserWorkItem(runWorkItem, item, WT_EXECUTELONGFUNCTION)) {
        delete item;
        throw GetLastError();
    }
}

void VexorPrintingService::OnStart(DWORD, LPWSTR*) {
    VX_LOG(kLogNormal, kNoLastError, 3, "Vexor_PrintingService in OnStart");
    // What an earlier run left is cleared, live listeners or not.
    PrinterReaper::reapPrinterPorts(1);
    startWorkItem(&VexorPrintingService::ServiceWorkerThread);
}

void VexorPrintingService::ServiceWorkerThread() {
    VX_LOG(kLogNormal, kNoLastError, 4, "Service Worker thread started and it is me.");
    // The mode changes nothing here: every mode serves.
    VX_LOG(kLogNormal, kNoLastError, 3, "%s",
           remotePrintingModeText(getGPOValue(kRemotePrintingEnabled, kRemotePrintingEnabledDefault)));
    while (!stopping.load(std::memory_order_relaxed)) {
        if (_createCmdSocket()) break;
        Sleep(kSocketRetryMs);
    }
    // Complete before the socket thread reads the first command.
    loadDriverCatalogue();
    startWorkItem(&VexorPrintingService::SocketReadThread);
    startWorkItem(&VexorPrintingService::PrinterCleanupThread);
    while (!stopping.load(std::memory_order_relaxed)) {
        try {
            _checkMsgQueue();
        } catch (const std::exception& e) {
            VX_LOG(kLogError, kNoLastError, 5, "exception in _checkMsgQueue() caught:%s", e.what());
        } catch (...) {
            VX_LOG(kLogError, kNoLastError, 5, "Unknown exception in _checkMsgQueue() caught");
        }
    }
    SetEvent(stoppedEvent);
}

void VexorPrintingService::SocketReadThread() {
    VX_LOG(kLogNormal, kNoLastError, 4, "Socket reading thread started and it is me.");
    while (!stopping.load(std::memory_order_relaxed)) {
        try {
            _checkCmdSocket();
        } catch (const std::exception& e) {
            VX_LOG(kLogError, kNoLastError, 5, "exception in _checkCmdSocket() caught:%s", e.what());
        } catch (...) {
            VX_LOG(kLogError, kNoLastError, 5, "Unknown exception in _checkCmdSocket() caught");
        }
    }
}

void VexorPrintingService::stopPrinterCleanup() {
    cleanupStopping.exchange(1);
    SetEvent(cleanupWakeEvent);
    if (WaitForSingleObject(cleanupStoppedEvent, kStopWaitMs) != WAIT_OBJECT_0) {
        VX_LOG(kLogError, kWithLastError, 4, "failed on waiting for printer cleanup thread to stop");
        throw GetLastError();
    }
}

void VexorPrintingService::OnStop() {
    VX_LOG(kLogNormal, kNoLastError, 3, "Vexor_PrintingService in OnStop()");
    // The service's printers and ports go with it; this pass may overlap the
    // request the worker is still handling.
    PrinterReaper::reapPrinterPorts(1);
    stopping.store(1, std::memory_order_relaxed);
    if (WaitForSingleObject(stoppedEvent, kStopWaitMs) != WAIT_OBJECT_0) {
        VX_LOG(kLogError, kWithLastError, 4, "failed on wait for stop");
        throw GetLastError();
    }
    VX_LOG(kLogNormal, kNoLastError, 3, "worker thread stopped");
    SOCKET listening = cmdSocket.exchange(INVALID_SOCKET);
    if (listening != INVALID_SOCKET) closesocket(listening);
    stopPrinterCleanup();
    VX_LOG(kLogNormal, kNoLastError, 3, "Done OnStop()");
}

void VexorPrintingService::OnShutdown() {
    VX_LOG(kLogNormal, kNoLastError, 3, "Vexor_PrintingService in OnShutdown()");
    stopPrinterCleanup();
    VX_LOG(kLogNormal, kNoLastError, 3, "Done OnShutdown()");
}
