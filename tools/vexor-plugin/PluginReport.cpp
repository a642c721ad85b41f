#include "PluginReport.h"

#include "common/JsonText.h"
#include "common/SelectionSteps.h"

#include <iomanip>
#include <iostream>

namespace vexor_plugin {
namespace {

constexpr int kLabelWidth = 13;

}  // namespace

std::string glance(const std::string& bytes, size_t length) {
    std::string shown;
    for (size_t i = 0; i < bytes.size() && i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        shown.push_back(c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '.');
    }
    return bytes.size() > length ? shown + "..." : shown;
}

void PluginReport::line(const std::string& text) { std::cout << "vexor-plugin: " << text << std::endl; }

void PluginReport::field(const std::string& label, const std::string& value) {
    std::cout << std::left << std::setw(kLabelWidth) << label << value << std::endl;
}

void PluginReport::event(const Json::Value& value) { std::cout << vexor_tools::compactJson(value) << std::endl; }

void PluginReport::listening(const std::string& address, uint16_t port) {
    if (json_) return;
    line("listening for the spooler's jobs at " + address + ":" + std::to_string(port));
}

void PluginReport::connected(const std::string& address, uint16_t port, const std::string& fromAddress) {
    if (json_) return;
    line("connected to the service at " + address + ":" + std::to_string(port) +
         (fromAddress.empty() ? "" : " from " + fromAddress));
}

void PluginReport::asking(const Json::Value& request) {
    printerName_ = request["printerName"].asString();
    if (json_) return;
    line("asking for printer \"" + printerName_ + "\" on port " + request["pPortName"].asString());
}

bool PluginReport::reply(const std::string& text) {
    Json::Value reply;
    const bool parsed = vexor_tools::parseJson(text, reply) && reply.isObject();
    const bool created = parsed && reply["status"] == "success";
    if (json_) {
        std::cout << (parsed ? vexor_tools::compactJson(reply) : text) << std::endl;
        return created;
    }
    if (!parsed) {
        field("Reply:", text);
        return false;
    }
    const Json::Value& detail = reply["detail"];
    // Override settings may rename the printer; the record has the name used.
    if (detail["printerName"].isString() && !detail["printerName"].asString().empty())
        printerName_ = detail["printerName"].asString();
    field("Printer:", printerName_ + (created ? "" : " (not created)"));
    if (reply.isMember("err")) field("Refused:", reply["err"].asString());
    if (created) field("Driver:", detail["driverNamePicked"].asString());
    if (detail.isObject() && (created || detail.isMember("from")))
        field("Chosen by:", vexor_tools::decidingStep(detail, created, std::nullopt));
    if (detail.isMember("matchedHwid")) field("Matched id:", vexor_tools::matchedIdText(detail));
    if (created && detail.isMember("preinstalled"))
        field("Installed:", detail["preinstalled"].asBool() ? "already, on the host"
                                                            : "now, from the host's driver store");
    if (reply.isMember("warn")) field("Warning:", reply["warn"].asString());
    return created;
}

void PluginReport::waiting(unsigned documents) {
    if (json_) return;
    if (documents == 0)
        line("waiting for documents; Ctrl-C to leave");
    else
        line("waiting for " + std::to_string(documents) + (documents == 1 ? " document" : " documents") +
             "; Ctrl-C to leave sooner");
}

void PluginReport::document(unsigned number, const std::string& bytes, const std::string& savedTo) {
    if (json_) {
        Json::Value value(Json::objectValue);
        value["document"] = number;
        value["bytes"] = static_cast<Json::UInt64>(bytes.size());
        value["savedTo"] = savedTo;
        event(value);
        return;
    }
    field("Received:", "document " + std::to_string(number) + ", " + std::to_string(bytes.size()) +
                           " bytes, saved to " + savedTo);
    field("", "\"" + glance(bytes) + "\"");
}

void PluginReport::leaving(const std::string& why, bool serviceReaps) {
    if (json_) {
        Json::Value value(Json::objectValue);
        value["left"] = why;
        event(value);
        return;
    }
    line(why + ": listener and connection closed");
    if (serviceReaps) line("the service now reaps printer \"" + printerName_ + "\" and its port");
}

void PluginReport::note(const std::string& what) { std::cerr << "vexor-plugin: note: " << what << std::endl; }

void PluginReport::failure(const std::string& what) {
    if (json_) {
        Json::Value value(Json::objectValue);
        value["error"] = what;
        event(value);
        return;
    }
    std::cerr << "vexor-plugin: " << what << std::endl;
}

}  // namespace vexor_plugin
