// Load driver for the command socket. Starts the service on the simulated
// host, opens N clients that each send M light requests (an unknown verb,
// answered without touching the spooler) one after the other, and reports
// requests per second and the round-trip percentiles. The same clients then
// run against a bare NUL-framed echo server on loopback, measured in the
// same run, so that the figures can be read against what the network and the
// machine cost by themselves.
//
//   command_load [clients=8] [requests-per-client=500]
//   command_load ports [count=1000]
//   command_load printers [plugins=4] [rounds=25]
//
// The second form measures the port verbs: one client makes `count` raw
// TCP/IP ports with createPPort and removes them with deletePPort, at 100
// ports and at `count`, so that the growth of the per-port cost shows; the
// echo server's round trip of the same run is the reference.
//
// The third form has N plugins create and remove printers at once with
// createPrinterAndPort and deletePrinterAndPort, against a driver store of
// 5,000 staged models (see printersMain).
#include "bench/command_load/service_side.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct RunResult {
    std::vector<double> roundTripsUs;
    double seconds = 0;
    size_t failures = 0;
};

int connectTo(const char* address, int port) {
    sockaddr_in target = {};
    target.sin_family = AF_INET;
    target.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &target.sin_addr);
    for (int attempt = 0; attempt < 500; ++attempt) {
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&target), sizeof target) == 0) {
            int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            return fd;
        }
        ::close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return -1;
}

// Sends `message` (NUL included) and reads up to the reply's NUL; the reply
// without its NUL goes to `reply` when asked for.
bool roundTrip(int fd, const std::string& message, std::string& pending, std::string* reply = nullptr) {
    if (::send(fd, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size())) return false;
    for (;;) {
        size_t nul = pending.find('\0');
        if (nul != std::string::npos) {
            if (reply) reply->assign(pending, 0, nul);
            pending.erase(0, nul + 1);
            return true;
        }
        char buffer[8192];
        ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) return false;
        pending.append(buffer, static_cast<size_t>(n));
    }
}

RunResult runClients(const char* address, int port, int clients, int requests) {
    std::vector<int> sockets;
    for (int i = 0; i < clients; ++i) sockets.push_back(connectTo(address, port));
    std::vector<std::vector<double>> perClient(static_cast<size_t>(clients));
    std::atomic<size_t> failures{0};
    auto started = Clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            std::string pending;
            for (int r = 0; r < requests; ++r) {
                std::string message = "{\"msg\":\"loadProbe\",\"_msgUniqueId\":" + std::to_string(r) + "}";
                message.push_back('\0');
                auto sent = Clock::now();
                if (sockets[c] < 0 || !roundTrip(sockets[c], message, pending)) {
                    ++failures;
                    return;
                }
                perClient[c].push_back(std::chrono::duration<double, std::micro>(Clock::now() - sent).count());
            }
        });
    }
    for (auto& thread : threads) thread.join();
    RunResult result;
    result.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    result.failures = failures;
    for (auto& times : perClient) result.roundTripsUs.insert(result.roundTripsUs.end(), times.begin(), times.end());
    for (int fd : sockets)
        if (fd >= 0) ::close(fd);
    return result;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    size_t index = static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[index];
}

void report(const char* name, const RunResult& result) {
    std::printf("%-14s %8zu requests  %9.0f req/s  p50 %8.1f us  p99 %8.1f us  failures %zu\n", name,
                result.roundTripsUs.size(), static_cast<double>(result.roundTripsUs.size()) / result.seconds,
                percentile(result.roundTripsUs, 0.50), percentile(result.roundTripsUs, 0.99), result.failures);
}

// A bare echo server on 127.0.0.1: one thread per connection, each
// NUL-ended message sent straight back.
class EchoServer {
public:
    EchoServer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 64);
        socklen_t length = sizeof address;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] { acceptLoop(); });
    }
    ~EchoServer() {
        ::shutdown(listener_, SHUT_RDWR);
        ::close(listener_);
        acceptor_.join();
        for (auto& thread : connections_) thread.join();
    }
    int port() const { return port_; }

private:
    void acceptLoop() {
        for (;;) {
            int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0) return;
            int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            connections_.emplace_back([fd] {
                std::string pending;
                char buffer[8192];
                for (;;) {
                    ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
                    if (n <= 0) break;
                    pending.append(buffer, static_cast<size_t>(n));
                    size_t nul;
                    while ((nul = pending.find('\0')) != std::string::npos) {
                        ::send(fd, pending.data(), nul + 1, MSG_NOSIGNAL);
                        pending.erase(0, nul + 1);
                    }
                }
                ::close(fd);
            });
        }
    }

    int listener_ = -1;
    int port_ = 0;
    std::thread acceptor_;
    std::vector<std::thread> connections_;
};

}  // namespace

// One client's round trips of the messages `make(i)` for i below `count`;
// false at the first one that fails or is not answered with success.
bool timeVerb(int fd, std::string& pending, int count, const std::function<std::string(int)>& make,
              RunResult& result) {
    auto started = Clock::now();
    for (int i = 0; i < count; ++i) {
        std::string message = make(i);
        message.push_back('\0');
        auto sent = Clock::now();
        std::string reply;
        if (!roundTrip(fd, message, pending, &reply)) return false;
        if (reply.find("\"status\":\"success\"") == std::string::npos) {
            std::fprintf(stderr, "refused: %s\n", reply.c_str());
            return false;
        }
        result.roundTripsUs.push_back(std::chrono::duration<double, std::micro>(Clock::now() - sent).count());
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    return true;
}

std::string portRequest(const char* verb, int i) {
    std::string name = "VEXOR_127.0.1.20:" + std::to_string(10000 + i);
    if (std::string(verb) == "deletePPort")
        return "{\"msg\":\"deletePPort\",\"_msgUniqueId\":" + std::to_string(i) + ",\"name\":\"" + name + "\"}";
    return "{\"msg\":\"createPPort\",\"_msgUniqueId\":" + std::to_string(i) + ",\"pPortName\":\"" + name +
           "\",\"IP\":\"127.0.1.20\",\"port\":" + std::to_string(10000 + i) + "}";
}

// Makes and removes `count` ports on a freshly started service; false when
// any request failed.
bool measurePortVerbs(int count) {
    std::string drive = startServiceOnSimulatedHost();
    int fd = connectTo("127.0.3.1", 5555);
    std::string pending;
    RunResult made, removed;
    bool complete = fd >= 0 && timeVerb(fd, pending, count, [](int i) { return portRequest("createPPort", i); }, made) &&
                    timeVerb(fd, pending, count, [](int i) { return portRequest("deletePPort", i); }, removed);
    if (fd >= 0) ::close(fd);
    stopService();
    std::filesystem::remove_all(drive);
    std::printf("%5d ports  createPPort %8.1f us/port  deletePPort %8.1f us/port\n", count,
                made.seconds * 1e6 / std::max(1, count), removed.seconds * 1e6 / std::max(1, count));
    return complete && made.roundTripsUs.size() == static_cast<size_t>(count) &&
           removed.roundTripsUs.size() == static_cast<size_t>(count);
}

int portsMain(int count) {
    {
        EchoServer echo;
        report("echo server", runClients("127.0.0.1", echo.port(), 1, 500));
    }
    bool complete = measurePortVerbs(std::min(count, 100));
    if (count > 100) complete = measurePortVerbs(count) && complete;
    return complete ? 0 : 1;
}

// ---- Printers ----

// What a plugin sends for printer `index` of plugin `plugin`: a Windows
// client's printer on its own port, with the driver it names.
std::string printerRequest(int plugin, int index, const std::string& driverName) {
    // The XPS format lets an unknown driver end at the fallback.
    const int port = 20000 + plugin * 1000 + index;
    const std::string portName = "Vexor_127.0.1.20:" + std::to_string(port);
    return "{\"msg\":\"createPrinterAndPort\",\"_msgUniqueId\":" + std::to_string(index) +
           ",\"printerName\":\"Load " + std::to_string(plugin) + "-" + std::to_string(index) +
           "\",\"pPortName\":\"" + portName + "\",\"IP\":\"127.0.1.20\",\"port\":" + std::to_string(port) +
           ",\"OS\":\"Windows\",\"ClientRenderSupported\":[\"XPS\"],\"driverName\":\"" + driverName + "\"}";
}

std::string removalRequest(int plugin, int index) {
    return "{\"msg\":\"deletePrinterAndPort\",\"_msgUniqueId\":" + std::to_string(index) +
           ",\"printerName\":\"Load " + std::to_string(plugin) + "-" + std::to_string(index) + "\"}";
}

struct CreationRun {
    RunResult created, removed;
    bool complete = true;
};

// `plugins` clients at once, each creating and removing `rounds` printers
// in turn; the creations' round trips and their rate.
CreationRun runPlugins(int plugins, int rounds, const std::string& driverName) {
    CreationRun run;
    std::vector<RunResult> created(static_cast<size_t>(plugins)), removed(static_cast<size_t>(plugins));
    std::atomic<bool> complete{true};
    auto started = Clock::now();
    std::vector<std::thread> threads;
    for (int p = 0; p < plugins; ++p) {
        threads.emplace_back([&, p] {
            int fd = connectTo("127.0.3.1", 5555);
            std::string pending;
            // The first answer comes once the catalogue is built: not timed.
            std::string probe = "{\"msg\":\"loadProbe\",\"_msgUniqueId\":0}";
            probe.push_back('\0');
            if (fd >= 0 && !roundTrip(fd, probe, pending)) complete = false;
            for (int r = 0; r < rounds && fd >= 0; ++r) {
                if (!timeVerb(fd, pending, 1, [&](int) { return printerRequest(p, r, driverName); }, created[p]) ||
                    !timeVerb(fd, pending, 1, [&](int) { return removalRequest(p, r); }, removed[p]))
                    complete = false;
            }
            if (fd < 0) complete = false;
            if (fd >= 0) ::close(fd);
        });
    }
    for (auto& thread : threads) thread.join();
    run.created.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    for (int p = 0; p < plugins; ++p) {
        run.created.roundTripsUs.insert(run.created.roundTripsUs.end(), created[p].roundTripsUs.begin(),
                                        created[p].roundTripsUs.end());
        run.removed.roundTripsUs.insert(run.removed.roundTripsUs.end(), removed[p].roundTripsUs.begin(),
                                        removed[p].roundTripsUs.end());
    }
    run.complete = complete && run.created.roundTripsUs.size() == static_cast<size_t>(plugins * rounds);
    return run;
}

// One kind of creation on a fresh service: its rate, its percentiles, and
// the log lines each creation and removal wrote.
bool measureCreations(const char* name, int plugins, int rounds, int catalogue, int installed,
                      const std::string& driverName, double logLineUs) {
    const std::string drive = startServiceWithDriverStore(catalogue, installed);
    const size_t linesBefore = serviceLogLines(drive);
    CreationRun run = runPlugins(plugins, rounds, driverName);
    const double linesPerPair = static_cast<double>(serviceLogLines(drive) - linesBefore) / (plugins * rounds);
    stopService();
    std::filesystem::remove_all(drive);
    const double p50 = percentile(run.created.roundTripsUs, 0.50);
    std::printf("%-26s %4zu creations %7.1f /s  p50 %8.1f us  p99 %8.1f us  removal p50 %7.1f us  "
                "log %5.1f lines/pair (~%.0f%% of p50)\n",
                name, run.created.roundTripsUs.size(),
                static_cast<double>(run.created.roundTripsUs.size()) / run.created.seconds, p50,
                percentile(run.created.roundTripsUs, 0.99), percentile(run.removed.roundTripsUs, 0.50), linesPerPair,
                100.0 * linesPerPair * logLineUs / (2 * p50));
    return run.complete;
}

// Creations of Windows clients' printers against a catalogue of 5,000
// staged models and 200 installed drivers. Beside the plain creation
// (driver named and installed, no language monitor) the same run measures
// one whose driver has a language monitor (the difference is the WMI call
// that switches bidirectional printing on) and one whose driver must be
// found by the whole ladder down to its fallback (the difference is the
// selection); the echo server's round trip is the reference.
int printersMain(int plugins, int rounds) {
    {
        EchoServer echo;
        report("echo server", runClients("127.0.0.1", echo.port(), 1, 500));
    }
    std::string drive = startServiceWithDriverStore(10, 1);
    const double logLineUs = logLineMicroseconds(2000);
    stopService();
    std::filesystem::remove_all(drive);
    const AddCost add = addPrinterCost(200);
    std::printf("one log line %.1f us; one add %.1f us directly, %.1f us on the add thread\n", logLineUs,
                add.directUs, add.guardedUs);
    bool complete = measureCreations("driver named", plugins, rounds, 5000, 200, "Maker1 Model 1", logLineUs);
    complete = measureCreations("driver with monitor (WMI)", plugins, rounds, 5000, 200, "Maker0 Model 0", logLineUs) &&
               complete;
    // A driver nobody has: every step of the ladder looks, down to the
    // client's fallback driver.
    complete = measureCreations("unknown driver (fallback)", plugins, std::max(1, rounds / 5), 5000, 200,
                                "Nobody Box 9", logLineUs) &&
               complete;
    return complete ? 0 : 1;
}

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "ports") return portsMain(argc > 2 ? std::atoi(argv[2]) : 1000);
    if (argc > 1 && std::string(argv[1]) == "printers")
        return printersMain(argc > 2 ? std::atoi(argv[2]) : 4, argc > 3 ? std::atoi(argv[3]) : 25);
    int clients = argc > 1 ? std::atoi(argv[1]) : 8;
    int requests = argc > 2 ? std::atoi(argv[2]) : 500;
    std::printf("%d clients x %d requests each\n", clients, requests);

    {
        EchoServer echo;
        report("echo server", runClients("127.0.0.1", echo.port(), clients, requests));
    }

    std::string drive = startServiceOnSimulatedHost();
    RunResult service = runClients("127.0.3.1", 5555, clients, requests);
    report("service", service);
    stopService();
    std::filesystem::remove_all(drive);
    // Every request must have been answered: a refused client is a broken run.
    const bool complete = service.failures == 0 &&
                          service.roundTripsUs.size() == static_cast<size_t>(clients) * static_cast<size_t>(requests);
    return complete ? 0 : 1;
}
