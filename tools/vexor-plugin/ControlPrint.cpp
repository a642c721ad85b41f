#include "ControlPrint.h"

#include "common/JsonText.h"
#include "common/Sockets.h"

#include <json/json.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace vexor_plugin {

using namespace vexor_tools;
namespace {

enum ExitStatus { kPrinted = 0, kRefused = 1, kUnreachable = 3 };
constexpr int kReplyTimeoutMs = 30000;

std::string readDocument(const std::string& file) {
    if (file == "-") return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    std::ifstream in(file, std::ios::binary);
    if (!in) throw UsageError("cannot read " + file);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Descriptor connectToHost(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw SocketError("the control socket's path is too long");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    Descriptor host(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!host.valid() || ::connect(host.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw SocketError("no simulated host serves a control socket at " + path +
                          " (the service must run with VEXOR_SIM_CONTROL set)");
    return host;
}

std::string readReplyLine(int host) {
    std::string reply;
    char buffer[4096];
    while (reply.find('\n') == std::string::npos) {
        if (!waitReadable(host, -1, -1, kReplyTimeoutMs).first) break;
        ssize_t n = ::recv(host, buffer, sizeof buffer, 0);
        if (n <= 0) break;
        reply.append(buffer, static_cast<size_t>(n));
    }
    return reply.substr(0, reply.find('\n'));
}

}  // namespace

int printThroughHost(const PrintOptions& options) {
    const std::string document = readDocument(options.file);
    Json::Value request(Json::objectValue);
    request["op"] = "print";
    request["printer"] = options.printer;
    request["document"] = options.document;
    request["size"] = static_cast<Json::UInt64>(document.size());
    std::string replyText;
    try {
        Descriptor host = connectToHost(options.controlSocket);
        sendAll(host.get(), compactJson(request) + "\n" + document);
        replyText = readReplyLine(host.get());
    } catch (const SocketError& e) {
        std::cerr << "vexor-plugin: " << e.what() << std::endl;
        return kUnreachable;
    }
    Json::Value reply;
    if (replyText.empty() || !parseJson(replyText, reply)) {
        std::cerr << "vexor-plugin: no answer from the simulated host" << std::endl;
        return kUnreachable;
    }
    if (options.json) {
        std::cout << replyText << std::endl;
    } else if (reply["ok"].asBool()) {
        std::cout << "vexor-plugin: printed " << options.document << " (" << document.size() << " bytes) on \""
                  << options.printer << "\" as job " << reply["job"].asUInt() << "; the spooler sent it to "
                  << reply["sentTo"].asString() << std::endl;
    } else {
        std::cerr << "vexor-plugin: the simulated host did not print: " << reply["error"].asString() << std::endl;
    }
    return reply["ok"].asBool() ? kPrinted : kRefused;
}

}  // namespace vexor_plugin
