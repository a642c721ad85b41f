// The command line of vexor-plugin.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vexor_plugin {

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

extern const char* const kUsageText;

// vexor-plugin [run] PRINTER.json ...: stand in for a session's plugin.
struct RunOptions {
    std::string printerFile;
    std::string listenAddress = "127.0.1.20";
    uint16_t listenPort = 0;
    std::string fromAddress;
    std::string serviceAddress = "127.0.3.1";
    uint16_t servicePort = 5555;
    std::string saveDirectory = ".";
    unsigned documents = 1;
    bool keep = false;
    bool json = false;
    long replyTimeoutMs = 120000;
};

// vexor-plugin print --printer NAME FILE: print into the simulated host.
struct PrintOptions {
    std::string printer;
    std::string document;
    std::string file;
    std::string controlSocket;
    bool json = false;
};

enum class Command { Run, Print, Help };

struct Options {
    Command command = Command::Run;
    RunOptions run;
    PrintOptions print;
};

// Throws UsageError naming what is wrong.
Options parseOptions(int argc, char** argv);

}  // namespace vexor_plugin
