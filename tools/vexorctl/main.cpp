// vexorctl: sends one JSON command to the printing service's command socket,
// waits for the NUL-ended reply and prints it. Written against the platform
// façade like the service, so it runs on Windows and on the simulated host.
#include "foundation/TextConversion.h"
#include "platform/win32.h"

#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

enum ExitCode { kReplied = 0, kUsage = 1, kNothingListens = 2, kNoReply = 3, kClosedWithoutReply = 4, kCannotBind = 5 };

const char* const kUsageText =
    "usage: vexorctl [--raw] [--unchecked] [--timeout MS] [--address IP] [--port N] [--from IP] [JSON]\n"
    "Sends one JSON command to the printing service and prints its reply.\n"
    "Without JSON on the command line, the command is read from standard input.\n"
    "  --raw        print the reply as it came, without its final NUL byte\n"
    "  --unchecked  send the text even if it is not a JSON object\n"
    "  --timeout    how long to wait for the reply, in milliseconds (default 10000)\n"
    "  --address    the service's address (default 127.0.3.1)\n"
    "  --port       the service's port (default 5555)\n"
    "  --from       connect from this local address (a loopback address such as 127.0.2.3)\n"
    "Exit status: 0 reply printed, 1 usage or bad JSON, 2 nothing listens,\n"
    "3 no reply in time, 4 connection closed without a reply, 5 cannot connect\n"
    "from the --from address.\n";

struct Options {
    bool raw = false;
    bool unchecked = false;
    long timeoutMs = 10000;
    std::string address = "127.0.3.1";
    long port = 5555;
    std::string fromAddress;
    std::string command;
    bool haveCommand = false;
};

bool parseNumber(const std::string& text, long& value) {
    char* end = nullptr;
    value = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && end && *end == '\0' && value >= 0;
}

bool parseOptions(const std::vector<std::string>& arguments, Options& options) {
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto next = [&](std::string& value) {
            if (i + 1 >= arguments.size()) return false;
            value = arguments[++i];
            return true;
        };
        std::string value;
        if (argument == "--raw") {
            options.raw = true;
        } else if (argument == "--unchecked") {
            options.unchecked = true;
        } else if (argument == "--timeout") {
            if (!next(value) || !parseNumber(value, options.timeoutMs)) return false;
        } else if (argument == "--address") {
            if (!next(value)) return false;
            options.address = value;
        } else if (argument == "--port") {
            if (!next(value) || !parseNumber(value, options.port) || options.port > 65535) return false;
        } else if (argument == "--from") {
            if (!next(value)) return false;
            options.fromAddress = value;
        } else if (argument == "--help" || argument == "-h" || options.haveCommand) {
            return false;
        } else {
            options.command = argument;
            options.haveCommand = true;
        }
    }
    return true;
}

bool isJsonObject(const std::string& text, std::string& errors) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return false;
    if (!value.isObject()) errors = "the command is not a JSON object";
    return value.isObject();
}

// Connects, sends the command with its NUL, and reads up to the reply's NUL.
ExitCode exchange(const Options& options, std::string& reply) {
    SOCKET peer = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (peer == INVALID_SOCKET) return kNothingListens;
    sockaddr_in service = {};
    service.sin_family = AF_INET;
    service.sin_addr.s_addr = inet_addr(options.address.c_str());
    service.sin_port = htons(static_cast<u_short>(options.port));
    if (!options.fromAddress.empty()) {
        sockaddr_in local = {};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = inet_addr(options.fromAddress.c_str());
        if (bind(peer, reinterpret_cast<sockaddr*>(&local), sizeof local) == SOCKET_ERROR) {
            closesocket(peer);
            return kCannotBind;
        }
    }
    if (connect(peer, reinterpret_cast<sockaddr*>(&service), sizeof service) == SOCKET_ERROR) {
        closesocket(peer);
        return kNothingListens;
    }
    std::string message = options.command;
    message.push_back('\0');
    send(peer, message.data(), static_cast<int>(message.size()), 0);

    ExitCode result = kNoReply;
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(peer, &readable);
        timeval timeout = {static_cast<long>(options.timeoutMs / 1000), static_cast<long>(options.timeoutMs % 1000) * 1000};
        if (select(0, &readable, nullptr, nullptr, &timeout) <= 0) break;
        char buffer[8192];
        int received = recv(peer, buffer, sizeof buffer, 0);
        if (received <= 0) {
            result = kClosedWithoutReply;
            break;
        }
        reply.append(buffer, static_cast<size_t>(received));
        size_t nul = reply.find('\0');
        if (nul != std::string::npos) {
            reply.erase(nul);
            result = kReplied;
            break;
        }
    }
    closesocket(peer);
    return result;
}

void printReply(const std::string& reply, bool raw) {
    std::string errors;
    Json::Value value;
    Json::CharReaderBuilder reader;
    std::istringstream in(reply);
    if (raw || !Json::parseFromStream(reader, in, &value, &errors)) {
        std::fwrite(reply.data(), 1, reply.size(), stdout);
        return;
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    std::cout << Json::writeString(writer, value) << "\n";
}

int run(const Options& options) {
    std::string errors;
    if (!options.unchecked && !isJsonObject(options.command, errors)) {
        std::fprintf(stderr, "vexorctl: not a JSON object: %s\n", errors.c_str());
        return kUsage;
    }
    std::string reply;
    ExitCode result = exchange(options, reply);
    switch (result) {
        case kReplied:
            printReply(reply, options.raw);
            break;
        case kNothingListens:
            std::fprintf(stderr, "vexorctl: nothing listens on %s:%ld\n", options.address.c_str(), options.port);
            break;
        case kCannotBind:
            std::fprintf(stderr, "vexorctl: cannot connect from %s\n", options.fromAddress.c_str());
            break;
        case kNoReply:
            std::fprintf(stderr, "vexorctl: no reply within %ld ms\n", options.timeoutMs);
            break;
        default:
            std::fprintf(stderr, "vexorctl: the service closed the connection without a reply\n");
            break;
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments;
    for (const std::wstring& argument : platform::wideArguments(argc, argv)) arguments.push_back(wideToUtf8(argument));
    Options options;
    if (!parseOptions(arguments, options)) {
        std::fputs(kUsageText, stderr);
        return kUsage;
    }
    if (!options.haveCommand)
        options.command.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    while (!options.command.empty() && (options.command.back() == '\n' || options.command.back() == '\r'))
        options.command.pop_back();

    WSADATA wsaData;
    if (WSAStartup(MAKEWORD(2, 2), &wsaData) != 0) {
        std::fprintf(stderr, "vexorctl: networking is not available\n");
        return kNothingListens;
    }
    int result = run(options);
    WSACleanup();
    return result;
}
