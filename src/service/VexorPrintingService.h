// The one object that owns the running service: the command socket, the
// client table, the request queue, the driver catalogue and every event and
// mutex. Its methods are the command handlers and the bodies of the three
// long-running threads; each subsystem folder defines the methods it owns.
#pragma once

#include "channel/ClientTypes.h"
#include "channel/MessageQueue.h"
#include "drivers/DriverInfoRecord.h"
#include "platform/win32.h"
#include "service/ServiceBase.h"

#include <json/json.h>

#include <atomic>
#include <cstdint>
#include <map>

class VexorPrintingService : public CServiceBase {
public:
    static constexpr const wchar_t* kServiceName = L"Vexor_PrintingService";

    VexorPrintingService();
    ~VexorPrintingService() override;

    void OnStart(DWORD argc, LPWSTR* argv) override;
    void OnStop() override;
    void OnShutdown() override;

    // Bodies of the three long-running work items.
    void ServiceWorkerThread();
    void SocketReadThread();
    void PrinterCleanupThread();

    // Asks the printer cleanup thread to finish and waits up to 10 seconds.
    void stopPrinterCleanup();

    // Command socket and framing (socket thread, but _createCmdSocket).
    bool _createCmdSocket();
    bool _checkCmdSocket();
    void _onClientConnect();
    bool _processClientObj(ClientObj* client);

    // Request queue and dispatch (worker thread).
    bool _checkMsgQueue();
    Json::Value _handleRequest(ClientMsg* msg);

    // Host-wide switches of driver selection, each read from the registry once
    // per run (the first call logs what it found).
    struct FeatureSwitch {
        std::atomic<bool> read{false};
        std::atomic<DWORD> value{0};
    };
    bool removeTrailingBracketsEnabled();
    bool addSeriesEnabled();
    bool jsonOverridesEnabled();

    // The driver catalogue of the host's staged drivers; the worker fills it
    // once before the socket thread starts.
    void loadDriverCatalogue();

    // Rendering policy: the client's OS as its request shows it, whether it
    // must get client rendering, and the driver that stands in for its
    // printer then (empty when none does).
    std::string GetClientOS(const Json::Value& request);
    bool forceClientSideRendering(const Json::Value& request);
    std::wstring GetFallbackDriver(const Json::Value& request);
    // The driver that serves a hardware id: installed drivers first, then,
    // with `useCompatibleIds`, the catalogue's ids of installed and of staged
    // drivers (a staged one is installed). Writes `detail` on a match; ""
    // when nothing serves.
    std::wstring _matchDriverByHwid(const std::wstring& hwid, bool useCompatibleIds, Json::Value& detail);
    // The driver a new printer gets for the client's description in
    // `request`: the installed driver's name, or "" with the failure in
    // `response`. `detail` tells how it was chosen and goes into `response`
    // on both endings; `printerComment` may receive the client-render mark.
    std::wstring selectDriver(const Json::Value& request, Json::Value& response, Json::Value& detail,
                              std::wstring& printerComment);

    // Printer creation (worker thread): the user's override settings laid
    // over the request, then a printer on the request's port with the driver
    // selection chooses, bound to the sender's logon session, with the
    // client's preferences applied as the sender's user.
    void applyOverrideSettings(Json::Value& request);
    Json::Value _addPrinter(Json::Value& request);
    // SetDefaultPrinterW for the calling thread's user: 0, or the last error.
    DWORD setDefaultPrinter(const std::wstring& name);

    // The verb `reap`: one pass of the reaper without force.
    Json::Value _reapPrinters(const Json::Value& request);

    // One pass over the device tree, removing the service's stale nodes.
    void removeStalePrinters();

    // Process information (worker thread): the owner of a TCP endpoint and
    // its ancestors.
    Json::Value _getTcpProcessInfo(const Json::Value& request);

    // Printer ports (worker thread): a raw TCP/IP port at a plugin's
    // listener, made and removed through the TCP/IP port monitor.
    Json::Value _addPrinterPort(const Json::Value& request);
    Json::Value _deletePrinterPort(const Json::Value& request);

    // Printer removal and status (worker thread). A client removes only the
    // printers of its own logon session.
    bool doesSenderOwnPrinter(const Json::Value& request);
    Json::Value _deletePrinter(const Json::Value& request);
    Json::Value _deletePrinterAndPort(const Json::Value& request);
    Json::Value _setPrinterStatus(const Json::Value& request);

private:
    typedef void (VexorPrintingService::*ThreadBody)();

    // How a driver name could be had: installed already, installed now, or not.
    enum class DriverAvailability { kUnavailable, kAlreadyInstalled, kJustInstalled };
    // Installs the driver when it is not installed yet; records in `detail`
    // whether it was there before.
    DriverAvailability tryDriverName(const std::wstring& name, Json::Value& detail);
    // The steps of selectDriver, over one request.
    class DriverLadder;
    // The steps of _addPrinter, over one request.
    class PrinterCreation;
    // The verb `createPrinterAndPort`: the port, then the printer; its lines
    // are those of `dispatch`.
    Json::Value addPrinterAndPort(Json::Value& request, const char* dispatch);
    // Starts `body` on a long-running thread-pool work item; throws the last
    // error if the pool refuses it.
    void startWorkItem(ThreadBody body);
    void stampSender(ClientMsg* msg);
    void removeClient(ClientObj* client);
    bool acquireQueueMutex(DWORD milliseconds);
    friend struct ServiceTestAccess;

    // The listening socket; closed and cleared by OnStop on another thread.
    std::atomic<SOCKET> cmdSocket;
    // Cleared after each port creation and printer addition; nothing reads it.
    std::atomic<int32_t> portCreatedMark;
    // Set by the socket thread when a client goes away, cleared by the worker.
    std::atomic<uint32_t> reapPending;
    // Set by OnStop; ends the worker and socket loops.
    std::atomic<uint32_t> stopping;
    HANDLE stoppedEvent;
    HANDLE msgQueueEvent;
    HANDLE hMsgQueueMutex;
    // The driver catalogue, filled by the worker before the first command;
    // driverInfoMap owns the records.
    DriverInfoMap driverInfoMap;
    DriverHwIdMap driverHwIdMap;
    MessageQueue msgQueue;
    // Connected clients by socket; touched by the socket thread alone.
    std::map<SOCKET, ClientObj*> clients;
    std::atomic<uint8_t> cleanupStopping;
    HANDLE cleanupStoppedEvent;
    HANDLE cleanupWakeEvent;
    FeatureSwitch bracketCheckSwitch;
    FeatureSwitch seriesMatchSwitch;
    FeatureSwitch jsonOverridesSwitch;
};
