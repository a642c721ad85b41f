#include "PluginRun.h"

#include "PluginReport.h"
#include "common/JsonText.h"
#include "common/Sockets.h"

#include <sys/socket.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <unistd.h>

namespace vexor_plugin {

using namespace vexor_tools;
namespace {

enum ExitStatus { kDone = 0, kRefused = 1, kUnreachable = 3 };

// Keys the stand-in fills in itself.
constexpr const char* kOwnKeys[] = {"msg", "_msgUniqueId", "IP", "port", "pPortName", "_senderPID"};

// The word that marks a printer as the service's own, for its reaper.
constexpr const char* kServicePrinterWord = "Local";

// Ctrl-C and SIGTERM end the wait through this pipe.
int leaveSignalled[2] = {-1, -1};

void onLeaveSignal(int) {
    const char byte = 1;
    (void)!::write(leaveSignalled[1], &byte, 1);
}

void catchLeaveSignals() {
    if (::pipe(leaveSignalled) != 0) throw SocketError("pipe");
    struct sigaction action = {};
    action.sa_handler = onLeaveSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

Json::Value readDescription(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw UsageError("cannot read the printer description " + path);
    Json::Value description;
    Json::CharReaderBuilder builder;
    std::string errors;
    if (!Json::parseFromStream(builder, in, &description, &errors))
        throw UsageError(path + " is not JSON: " + errors);
    return description;
}

// Sends the request with its NUL and reads the reply up to its NUL. An
// empty reply: none came in time or the service closed the connection.
std::string exchange(int service, const Json::Value& request, long timeoutMs) {
    sendAll(service, compactJson(request) + '\0');
    std::string reply;
    char buffer[8192];
    while (reply.find('\0') == std::string::npos) {
        if (!waitReadable(service, -1, -1, static_cast<int>(timeoutMs)).first) return {};
        ssize_t n = ::recv(service, buffer, sizeof buffer, 0);
        if (n <= 0) return {};
        reply.append(buffer, static_cast<size_t>(n));
    }
    return reply.substr(0, reply.find('\0'));
}

std::string savedDocumentPath(const RunOptions& options, uint16_t port, unsigned count) {
    return options.saveDirectory + "/job-" + std::to_string(port) + "-" + std::to_string(count) + ".prn";
}

// The plugin's side of a printer once it exists: documents arrive until
// enough came, a leave signal, or the service went away.
class Session {
public:
    Session(const RunOptions& options, PluginReport& report, Descriptor listener, uint16_t port, Descriptor service)
        : options_(options), report_(report), listener_(std::move(listener)), port_(port),
          service_(std::move(service)) {}

    int serve() {
        report_.waiting(options_.keep ? 0 : options_.documents);
        while (options_.keep || options_.documents == 0 || received_ < options_.documents) {
            Readiness ready = waitReadable(listener_.get(), service_.get(), leaveSignalled[0], -1);
            if (ready.third) return leave("asked to leave", true);
            if (ready.second && serviceGone()) return leave("the service closed the connection", false);
            if (ready.first) receiveDocument();
        }
        return leave("all documents received", true);
    }

private:
    // The service sends nothing after its reply; readable means it closed.
    bool serviceGone() {
        char byte;
        return ::recv(service_.get(), &byte, 1, MSG_PEEK) <= 0;
    }

    void receiveDocument() {
        Descriptor job(::accept(listener_.get(), nullptr, nullptr));
        if (!job.valid()) return;
        const std::string bytes = readUntilEnd(job.get());
        const std::string path = savedDocumentPath(options_, port_, ++received_);
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        report_.document(received_, bytes, path);
    }

    // Leaving while the service runs makes it reap the printer and port.
    int leave(const std::string& why, bool serviceReaps) {
        listener_.close();
        service_.close();
        report_.leaving(why, serviceReaps);
        return kDone;
    }

    const RunOptions& options_;
    PluginReport& report_;
    Descriptor listener_;
    uint16_t port_;
    Descriptor service_;
    unsigned received_ = 0;
};

}  // namespace

std::string portNameFor(const std::string& address, uint16_t port) {
    return "Vexor_" + address + ":" + std::to_string(port);
}

Json::Value printerRequest(const Json::Value& description, const std::string& listenAddress, uint16_t listenPort) {
    if (!description.isObject()) throw UsageError("a printer description must be a JSON object");
    for (const char* key : kOwnKeys)
        if (description.isMember(key))
            throw UsageError(std::string("the description sets \"") + key + "\", which the plugin stand-in sets itself");
    if (!description["printerName"].isString() || description["printerName"].asString().empty())
        throw UsageError("the description must name its printer in \"printerName\"");
    Json::Value request = description;
    request["msg"] = "createPrinterAndPort";
    request["_msgUniqueId"] = 1;
    request["pPortName"] = portNameFor(listenAddress, listenPort);
    request["IP"] = listenAddress;
    request["port"] = listenPort;
    return request;
}

int runPlugin(const RunOptions& options) {
    const Json::Value description = readDescription(options.printerFile);
    PluginReport report(options.json);
    uint16_t port = 0;
    Descriptor listener = listenAt(options.listenAddress, options.listenPort, port);
    const Json::Value request = printerRequest(description, options.listenAddress, port);
    catchLeaveSignals();
    report.listening(options.listenAddress, port);
    Descriptor service;
    try {
        service = connectTo(options.serviceAddress, options.servicePort, options.fromAddress);
    } catch (const SocketError& e) {
        report.failure(e.what());
        return kUnreachable;
    }
    report.connected(options.serviceAddress, options.servicePort, options.fromAddress);
    report.asking(request);
    if (request["printerName"].asString().find(kServicePrinterWord) == std::string::npos)
        report.note("the service reaps only printers with \"Local\" in their name; this one will stay when the "
                    "plugin leaves");
    const std::string reply = exchange(service.get(), request, options.replyTimeoutMs);
    if (reply.empty()) {
        report.failure("no reply from the service (a refused client is closed without one)");
        return kUnreachable;
    }
    if (!report.reply(reply)) return kRefused;
    return Session(options, report, std::move(listener), port, std::move(service)).serve();
}

}  // namespace vexor_plugin
