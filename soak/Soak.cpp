#include "Soak.h"

#include "PluginConnection.h"
#include "common/JsonText.h"

#include <json/json.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <thread>

namespace soak {
namespace {

constexpr int kReplyTimeoutMs = 30000;
constexpr int kJobTimeoutMs = 10000;
constexpr size_t kMaxDocumentBytes = 8192;
constexpr size_t kPrintersPerPlugin = 2;
constexpr int kCheckpoints = 10;

// The reply's value, null when it is no JSON.
Json::Value parse(const std::string& text) {
    Json::Value value;
    return vexor_tools::parseJson(text, value) ? value : Json::Value();
}

using vexor_tools::compactJson;

// What all plugins share: the count of operations, the ports handed out,
// what the departed left for the reaper, and what went wrong.
class Shared {
public:
    Shared(const SoakOptions& options, SoakReport& report) : options_(options), report_(report) {}

    // Takes the next operation; false once all are taken. Samples the
    // process's memory at each tenth.
    bool takeOperation() {
        const unsigned long taken = taken_.fetch_add(1);
        if (taken >= options_.operations) return false;
        if ((taken + 1) % std::max(1ul, options_.operations / kCheckpoints) == 0) {
            std::lock_guard<std::mutex> hold(mutex_);
            report_.residentKiB.push_back(residentKiB());
            report_.openTokens.push_back(openTokenHandles());
        }
        return true;
    }
    // Listener ports are never handed out twice in a run, so that a port of
    // a departed plugin that is not reaped yet is never taken for a live one.
    uint16_t nextPort() { return static_cast<uint16_t>(nextPort_.fetch_add(1)); }

    void abandon(const std::vector<std::string>& printers, const std::string& port) {
        std::lock_guard<std::mutex> hold(mutex_);
        abandonedPrinters_.insert(printers.begin(), printers.end());
        if (!port.empty()) abandonedPorts_.insert(port);
    }
    void fail(const std::string& what) {
        std::lock_guard<std::mutex> hold(mutex_);
        if (report_.failures.size() < 50) report_.failures.push_back(what);
    }
    template <typename Update>
    void count(Update update) {
        std::lock_guard<std::mutex> hold(mutex_);
        update(report_);
    }
    std::set<std::string> abandonedPrinters() const { return abandonedPrinters_; }
    std::set<std::string> abandonedPorts() const { return abandonedPorts_; }

private:
    const SoakOptions& options_;
    SoakReport& report_;
    std::atomic<unsigned long> taken_{0};
    std::atomic<unsigned> nextPort_{20000};
    std::mutex mutex_;
    std::set<std::string> abandonedPrinters_, abandonedPorts_;
};

std::string portNameOf(uint16_t port) { return "Vexor_127.0.1.20:" + std::to_string(port); }

// One plugin of one session: its own thread, its own random sequence.
class Plugin {
public:
    Plugin(int index, unsigned seed, Shared& shared)
        : index_(index), session_(kFirstSession + index % kSessions), random_(seed * 7919u + index),
          shared_(shared) {}

    void run() {
        while (shared_.takeOperation()) step();
    }

    const std::vector<std::string>& printers() const { return printers_; }
    bool joined() const { return connection_.joined(); }
    std::string portName() const { return portMade_ ? portNameOf(connection_.port()) : std::string(); }
    bool unaskedBytesWaiting() { return connection_.unaskedBytesWaiting(); }

    // Sends one request; its reply, checked to be the one asked for and
    // the only one.
    Json::Value ask(Json::Value request) {
        const int id = nextId_++;
        request["_msgUniqueId"] = id;
        const std::string text = connection_.exchange(compactJson(request), kReplyTimeoutMs);
        shared_.count([](SoakReport& report) { ++report.requests; });
        Json::Value reply = parse(text);
        if (text.empty() || reply["_msgUniqueId"] != id)
            shared_.fail(name() + ": no reply to " + compactJson(request) + " (got \"" + text + "\")");
        if (connection_.unaskedBytesWaiting())
            shared_.fail(name() + ": more than one reply to request " + std::to_string(id));
        return reply;
    }

    // Connects, and says hello until the service answers: a connection it
    // refused is closed without a reply, and a real plugin tries again.
    void join() {
        for (int attempt = 0; attempt < 20; ++attempt) {
            if (!connection_.join(shared_.nextPort(), sessionAddress(session_))) continue;
            const int id = nextId_++;
            const std::string reply =
                connection_.exchange(R"({"msg":"hello","_msgUniqueId":)" + std::to_string(id) + "}", kReplyTimeoutMs);
            if (parse(reply)["_msgUniqueId"] == id) {
                shared_.count([](SoakReport& report) {
                    ++report.joins;
                    ++report.requests;
                });
                return;
            }
            connection_.leave();
            shared_.count([](SoakReport& report) { ++report.refusedJoins; });
        }
        shared_.fail(name() + ": cannot join");
    }
    void remove() {
        const size_t which = random_() % printers_.size();
        Json::Value request(Json::objectValue);
        request["msg"] = "deletePrinter";
        request["printerName"] = printers_[which];
        Json::Value reply = ask(request);
        if (reply["status"] != "success")
            return shared_.fail(name() + ": " + printers_[which] + " not removed: " + compactJson(reply));
        printers_.erase(printers_.begin() + static_cast<long>(which));
        shared_.count([](SoakReport& report) { ++report.deletions; });
    }

    void removeAll() {
        while (!printers_.empty()) remove();
    }

    void leave() {
        shared_.abandon(printers_, portName());
        printers_.clear();
        portMade_ = false;
        connection_.leave();
        shared_.count([](SoakReport& report) { ++report.departures; });
    }

private:
    std::string name() const { return "plugin " + std::to_string(index_) + " of session " + std::to_string(session_); }

    void step() {
        if (!connection_.joined()) return join();
        const unsigned roll = random_() % 100;
        if (roll < 6) return leave();
        if (roll < 40 && printers_.size() < kPrintersPerPlugin) return create();
        if (roll < 75 && !printers_.empty()) return print();
        if (!printers_.empty()) return remove();
        create();
    }

    void create() {
        const std::string printer = "Soak " + std::to_string(index_) + "-" + std::to_string(serial_++) + " (Local)";
        Json::Value request(Json::objectValue);
        request["msg"] = portMade_ ? "createPrinter" : "createPrinterAndPort";
        request["printerName"] = printer;
        request["pPortName"] = portNameOf(connection_.port());
        request["IP"] = "127.0.1.20";
        request["port"] = connection_.port();
        request["OS"] = "Windows";
        request["driverName"] = kDriverName;
        request["clientPCName"] = "SOAK-" + std::to_string(index_);
        Json::Value reply = ask(request);
        if (reply["status"] != "success") return shared_.fail(name() + ": " + printer + " not made: " + compactJson(reply));
        printers_.push_back(printer);
        portMade_ = true;
        shared_.count([](SoakReport& report) { ++report.creations; });
    }

    void print() {
        const std::string& printer = printers_[random_() % printers_.size()];
        const size_t bytes = 1 + random_() % kMaxDocumentBytes;
        const std::string failure = printDocument(printer, bytes, random_());
        if (!failure.empty()) return shared_.fail(name() + ": printing to " + printer + ": " + failure);
        const long received = connection_.receiveJob(kJobTimeoutMs);
        if (received != static_cast<long>(bytes))
            shared_.fail(name() + ": " + std::to_string(bytes) + " bytes printed to " + printer + ", " +
                         std::to_string(received) + " arrived");
        shared_.count([bytes](SoakReport& report) {
            ++report.prints;
            report.documentBytes += bytes;
        });
    }

    int index_;
    int session_;
    std::mt19937 random_;
    Shared& shared_;
    PluginConnection connection_;
    int nextId_ = 1;
    unsigned serial_ = 0;
    bool portMade_ = false;
    std::vector<std::string> printers_;
};

// A reap asked for by a live plugin: a 64th connection would not be read.
void askForReap(Plugin& plugin, Shared& shared) {
    Json::Value request(Json::objectValue);
    request["msg"] = "reap";
    if (plugin.ask(request)["status"] != "success") shared.fail("the reap failed");
}

void checkAfterTheLastReap(const std::vector<std::unique_ptr<Plugin>>& plugins, Shared& shared) {
    const SpoolerView view = spoolerView();
    for (const std::string& printer : shared.abandonedPrinters())
        if (view.printerPorts.count(printer)) shared.fail("printer " + printer + " of a departed plugin is left");
    for (const std::string& port : shared.abandonedPorts())
        if (view.ports.count(port)) shared.fail("port " + port + " of a departed plugin is left");
    for (const auto& plugin : plugins) {
        for (const std::string& printer : plugin->printers()) {
            auto found = view.printerPorts.find(printer);
            if (found == view.printerPorts.end())
                shared.fail("printer " + printer + " of a live plugin is lost");
            else if (found->second != plugin->portName())
                shared.fail("printer " + printer + " is on " + found->second + ", not " + plugin->portName());
        }
        if (plugin->joined() && plugin->unaskedBytesWaiting()) shared.fail("a live plugin has a reply it did not ask for");
    }
}

}  // namespace

SoakReport runSoak(const SoakOptions& options) {
    SoakReport report;
    report.before = hostCounters();
    const std::string drive = startService();
    report.bytesPerToken = bytesPerOpenToken(4000);
    const size_t lookupsBefore = tokensOpenedForLookups();
    Shared shared(options, report);
    std::vector<std::unique_ptr<Plugin>> plugins;
    for (int i = 0; i < options.plugins; ++i) plugins.push_back(std::make_unique<Plugin>(i, options.seed, shared));
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (auto& plugin : plugins) threads.emplace_back([&plugin] { plugin->run(); });
    for (std::thread& thread : threads) thread.join();
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    // One plugin stays to ask for the reaps: after the others' departures,
    // then after its own printers are gone with the rest.
    Plugin& last = *plugins.front();
    if (!last.joined()) last.join();
    askForReap(last, shared);
    checkAfterTheLastReap(plugins, shared);
    for (auto& plugin : plugins)
        if (plugin.get() != &last && plugin->joined()) plugin->leave();
    last.removeAll();
    askForReap(last, shared);
    checkAfterTheLastReap({}, shared);
    last.leave();
    for (const auto& entry : spoolerView().printerPorts) shared.fail("printer " + entry.first + " is left after all left");
    stopService();
    report.after = hostCounters();
    // The design leaves the token of every session lookup open.
    report.sessionLookups = tokensOpenedForLookups() - lookupsBefore;
    Counters expected = report.before;
    expected["token handles"] += report.sessionLookups;
    expected["kernel handles"] += report.sessionLookups;
    for (const auto& counter : report.after)
        if (counter.second != expected[counter.first])
            shared.fail(counter.first + ": " + std::to_string(report.before[counter.first]) + " before, " +
                        std::to_string(counter.second) + " after, " + std::to_string(expected[counter.first]) +
                        " expected");
    if (report.failures.empty()) std::filesystem::remove_all(drive);
    else report.failures.push_back("the service's log is kept in " + drive);
    return report;
}

}  // namespace soak
