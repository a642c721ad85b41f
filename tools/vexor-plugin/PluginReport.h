// What the plugin stand-in tells its user: readable lines for people, or
// one JSON object per line with --json.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

namespace vexor_plugin {

class PluginReport {
public:
    explicit PluginReport(bool json) : json_(json) {}

    void listening(const std::string& address, uint16_t port);
    void connected(const std::string& address, uint16_t port, const std::string& fromAddress);
    void asking(const Json::Value& request);
    // Tells the service's reply; false when it refused the printer.
    bool reply(const std::string& text);
    // 0: until the stand-in is told to leave.
    void waiting(unsigned documents);
    void document(unsigned number, const std::string& bytes, const std::string& savedTo);
    void leaving(const std::string& why, bool serviceReaps);
    void failure(const std::string& what);
    // A note for the user on standard error, in both forms.
    void note(const std::string& what);

private:
    void line(const std::string& text);
    void field(const std::string& label, const std::string& value);
    void event(const Json::Value& value);

    bool json_;
    std::string printerName_;
};

// The first bytes of a document, printable characters kept and the rest
// shown as dots, for a glance at what arrived.
std::string glance(const std::string& bytes, size_t length = 48);

}  // namespace vexor_plugin
