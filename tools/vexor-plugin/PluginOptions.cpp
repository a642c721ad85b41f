#include "PluginOptions.h"

#include <cstdlib>
#include <vector>

namespace vexor_plugin {

const char* const kUsageText =
    "usage: vexor-plugin [run] PRINTER.json [options]\n"
    "       vexor-plugin print --printer NAME [--document TITLE] [--control PATH] [--json] FILE\n"
    "\n"
    "run: stands in for a session's plugin. Listens for the spooler's print jobs,\n"
    "asks the service for a printer described by PRINTER.json (createPrinterAndPort,\n"
    "its port pointing at the listener), tells which driver the printer got and why,\n"
    "saves each document that arrives, and leaves after --documents documents or at\n"
    "Ctrl-C, closing its listener and its connection so that the service reaps the\n"
    "printer.\n"
    "  --listen ADDRESS[:PORT]  where to listen for jobs (default 127.0.1.20, any port)\n"
    "  --from ADDRESS           connect to the service from this loopback address\n"
    "  --service ADDRESS:PORT   the service's command socket (default 127.0.3.1:5555)\n"
    "  --save DIR               where documents are saved (default: this folder)\n"
    "  --documents N            leave after N documents (default 1; 0: only at Ctrl-C)\n"
    "  --keep                   stay until killed, whatever arrives\n"
    "  --reply-timeout MS       how long to wait for the service's reply (default 120000)\n"
    "  --json                   print the reply and each document as JSON lines\n"
    "\n"
    "print: submits FILE (- for standard input) as a print job to a printer of the\n"
    "simulated host that runs the service, through the host's control socket\n"
    "(--control, default $VEXOR_SIM_CONTROL). The spooler sends it to the\n"
    "printer's port, that is to its plugin's listener.\n"
    "\n"
    "Exit status: 0 done, 1 the service or the host refused, 2 bad usage or\n"
    "description, 3 the service or the host cannot be reached or did not answer.\n";

namespace {

unsigned long number(const std::string& option, const std::string& text, unsigned long maximum) {
    char* end = nullptr;
    unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || !end || *end || text[0] == '-' || value > maximum)
        throw UsageError(option + " takes a number from 0 to " + std::to_string(maximum) + ", not \"" + text + "\"");
    return value;
}

// "ADDRESS" or "ADDRESS:PORT".
void addressAndPort(const std::string& option, const std::string& text, std::string& address, uint16_t& port,
                    bool portRequired) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        if (portRequired) throw UsageError(option + " takes ADDRESS:PORT, not \"" + text + "\"");
        address = text;
        return;
    }
    address = text.substr(0, colon);
    port = static_cast<uint16_t>(number(option, text.substr(colon + 1), 65535));
}

class Arguments {
public:
    Arguments(int argc, char** argv) : values_(argv + 1, argv + argc) {}
    bool done() const { return next_ >= values_.size(); }
    const std::string& take() { return values_[next_++]; }
    const std::string& valueOf(const std::string& option) {
        if (done()) throw UsageError(option + " needs a value");
        return take();
    }

private:
    std::vector<std::string> values_;
    size_t next_ = 0;
};

void parseRun(Arguments& arguments, RunOptions& run) {
    while (!arguments.done()) {
        const std::string argument = arguments.take();
        if (argument == "--listen")
            addressAndPort(argument, arguments.valueOf(argument), run.listenAddress, run.listenPort, false);
        else if (argument == "--from")
            run.fromAddress = arguments.valueOf(argument);
        else if (argument == "--service")
            addressAndPort(argument, arguments.valueOf(argument), run.serviceAddress, run.servicePort, true);
        else if (argument == "--save")
            run.saveDirectory = arguments.valueOf(argument);
        else if (argument == "--documents")
            run.documents = static_cast<unsigned>(number(argument, arguments.valueOf(argument), 1000000));
        else if (argument == "--keep")
            run.keep = true;
        else if (argument == "--reply-timeout")
            run.replyTimeoutMs = static_cast<long>(number(argument, arguments.valueOf(argument), 3600000));
        else if (argument == "--json")
            run.json = true;
        else if (argument.rfind("--", 0) == 0)
            throw UsageError("unknown option " + argument);
        else if (!run.printerFile.empty())
            throw UsageError("one printer description only, not also \"" + argument + "\"");
        else
            run.printerFile = argument;
    }
    if (run.printerFile.empty()) throw UsageError("name the printer description, a JSON file");
}

void parsePrint(Arguments& arguments, PrintOptions& print) {
    while (!arguments.done()) {
        const std::string argument = arguments.take();
        if (argument == "--printer")
            print.printer = arguments.valueOf(argument);
        else if (argument == "--document")
            print.document = arguments.valueOf(argument);
        else if (argument == "--control")
            print.controlSocket = arguments.valueOf(argument);
        else if (argument == "--json")
            print.json = true;
        else if (argument.rfind("--", 0) == 0)
            throw UsageError("unknown option " + argument);
        else if (!print.file.empty())
            throw UsageError("one file only, not also \"" + argument + "\"");
        else
            print.file = argument;
    }
    if (print.printer.empty()) throw UsageError("print needs --printer NAME");
    if (print.file.empty()) throw UsageError("print needs the file to print (- for standard input)");
    if (print.controlSocket.empty()) {
        const char* fromEnvironment = std::getenv("VEXOR_SIM_CONTROL");
        if (!fromEnvironment || !*fromEnvironment)
            throw UsageError("no control socket: give --control PATH or set VEXOR_SIM_CONTROL");
        print.controlSocket = fromEnvironment;
    }
    if (print.document.empty()) print.document = print.file == "-" ? "standard input" : print.file;
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    Arguments arguments(argc, argv);
    Options options;
    if (arguments.done()) throw UsageError("name a printer description or a command");
    const std::string first = arguments.take();
    if (first == "--help" || first == "-h") {
        options.command = Command::Help;
    } else if (first == "print") {
        options.command = Command::Print;
        parsePrint(arguments, options.print);
    } else {
        Arguments rest(argc, argv);
        if (first == "run") rest.take();
        parseRun(rest, options.run);
    }
    return options;
}

}  // namespace vexor_plugin
