// The plugin stand-in's run: listener, request, documents, departure.
#pragma once

#include "PluginOptions.h"

#include <json/json.h>

#include <string>

namespace vexor_plugin {

// The createPrinterAndPort request for the description in `description`
// (the printer keys a plugin sends), its port pointing at `listenAddress`:
// `listenPort`. Throws UsageError for a description that is no JSON object
// or that sets a key the stand-in sets itself.
Json::Value printerRequest(const Json::Value& description, const std::string& listenAddress, uint16_t listenPort);

// The name the stand-in gives its port: "Vexor_<address>:<port>", a name the
// service's reaper knows as one of its own.
std::string portNameFor(const std::string& address, uint16_t port);

// Runs the stand-in; answers the exit status.
int runPlugin(const RunOptions& options);

}  // namespace vexor_plugin
