// vexor-plugin print: a document printed on the simulated host that runs
// the service, through the host's control socket.
#pragma once

#include "PluginOptions.h"

namespace vexor_plugin {

// Answers the exit status.
int printThroughHost(const PrintOptions& options);

}  // namespace vexor_plugin
