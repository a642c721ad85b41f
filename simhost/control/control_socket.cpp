// The Linux side of the control socket: a Unix socket served on one thread,
// one request per connection. Requests are answered one after the other; a
// client that stalls is given up after kClientTimeoutMilliseconds.
#include "simhost/control/control_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace simhost {
namespace control {
namespace {

constexpr int kClientTimeoutMilliseconds = 10000;
constexpr size_t kMaxRequestLine = 64 * 1024;

struct Served {
    std::mutex mutex;
    std::string path;
    int listening = -1;
    int wakeRead = -1;
    int wakeWrite = -1;
    std::thread thread;
};

Served& served() {
    static Served instance;
    return instance;
}

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

// Waits until `descriptor` is readable (or `wake` is); false on time-out, on
// a wake or on an error.
bool waitReadable(int descriptor, int wake, int timeoutMilliseconds) {
    pollfd watched[2] = {{descriptor, POLLIN, 0}, {wake, POLLIN, 0}};
    int ready = ::poll(watched, wake >= 0 ? 2 : 1, timeoutMilliseconds);
    return ready > 0 && (watched[0].revents & (POLLIN | POLLHUP)) && !(wake >= 0 && watched[1].revents);
}

// The request line, without its '\n', and whatever followed it in the same
// reads; false when the client sent no full line in time.
bool readRequestLine(int client, std::string& line, std::string& rest) {
    std::string received;
    char buffer[4096];
    while (received.find('\n') == std::string::npos) {
        if (received.size() > kMaxRequestLine || !waitReadable(client, -1, kClientTimeoutMilliseconds)) return false;
        ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
        if (n <= 0) return false;
        received.append(buffer, static_cast<size_t>(n));
    }
    size_t end = received.find('\n');
    line = received.substr(0, end);
    rest = received.substr(end + 1);
    return true;
}

bool readBytes(int client, size_t size, std::string& bytes) {
    char buffer[65536];
    while (bytes.size() < size) {
        if (!waitReadable(client, -1, kClientTimeoutMilliseconds)) return false;
        ssize_t n = ::recv(client, buffer, std::min(sizeof buffer, size - bytes.size()), 0);
        if (n <= 0) return false;
        bytes.append(buffer, static_cast<size_t>(n));
    }
    return true;
}

Json::Value parseLine(const std::string& line, std::string& errors) {
    Json::Value request;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(line.data(), line.data() + line.size(), &request, &errors)) return Json::Value();
    return request;
}

Json::Value refusal(const std::string& error) {
    Json::Value reply(Json::objectValue);
    reply["ok"] = false;
    reply["error"] = error;
    return reply;
}

Json::Value answer(int client) {
    std::string line, document;
    if (!readRequestLine(client, line, document)) return refusal("no request line: send one JSON object ended by a new line");
    std::string errors;
    Json::Value request = parseLine(line, errors);
    if (!errors.empty()) return refusal("the request is not JSON: " + errors);
    size_t size = 0;
    if (!announcedSize(request, size, errors)) return refusal(errors);
    if (document.size() > size) return refusal("more bytes than \"size\" announces");
    if (!readBytes(client, size, document)) return refusal("the document ended before its \"size\" bytes");
    return answerControlRequest(request, document);
}

void reply(int client, const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    std::string text = Json::writeString(writer, value) + "\n";
    size_t sent = 0;
    while (sent < text.size()) {
        ssize_t n = ::send(client, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<size_t>(n);
    }
}

void serve(int listening, int wake) {
    for (;;) {
        if (!waitReadable(listening, wake, -1)) return;
        int client = ::accept(listening, nullptr, nullptr);
        if (client < 0) continue;
        reply(client, answer(client));
        ::close(client);
    }
}

// A socket file an earlier run left behind is replaced; any other file is not.
void removeStaleSocket(const std::string& path) {
    struct stat existing = {};
    if (::lstat(path.c_str(), &existing) != 0) return;
    if (!S_ISSOCK(existing.st_mode)) throw std::runtime_error(path + " exists and is not a socket");
    ::unlink(path.c_str());
}

int listenAt(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the path must have 1 to " + std::to_string(sizeof address.sun_path - 1) +
                                 " characters");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    removeStaleSocket(path);
    int listening = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listening < 0) throw std::runtime_error(systemError("socket"));
    // Only the user who runs the host may reach it.
    mode_t previous = ::umask(0177);
    int bound = ::bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::umask(previous);
    if (bound != 0 || ::listen(listening, 8) != 0) {
        std::string error = systemError(bound != 0 ? "bind" : "listen");
        ::close(listening);
        throw std::runtime_error(error);
    }
    return listening;
}

}  // namespace

void startControlSocket(const std::string& path) {
    Served& state = served();
    std::lock_guard<std::mutex> hold(state.mutex);
    if (state.listening >= 0) throw std::runtime_error("a control socket is served already");
    int listening = listenAt(path);
    int wake[2];
    if (::pipe2(wake, O_CLOEXEC) != 0) {
        ::close(listening);
        ::unlink(path.c_str());
        throw std::runtime_error(systemError("pipe"));
    }
    state.path = path;
    state.listening = listening;
    state.wakeRead = wake[0];
    state.wakeWrite = wake[1];
    state.thread = std::thread(serve, listening, wake[0]);
}

void stopControlSocket() {
    Served& state = served();
    std::lock_guard<std::mutex> hold(state.mutex);
    if (state.listening < 0) return;
    (void)!::write(state.wakeWrite, "x", 1);
    state.thread.join();
    for (int descriptor : {state.listening, state.wakeRead, state.wakeWrite}) ::close(descriptor);
    ::unlink(state.path.c_str());
    state.path.clear();
    state.listening = state.wakeRead = state.wakeWrite = -1;
}

}  // namespace control
}  // namespace simhost
