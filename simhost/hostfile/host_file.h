// The host file and the state file: a whole run of the simulated host can be
// arranged from a JSON file named by VEXOR_SIM_HOST, and the machine's final
// state is written where VEXOR_SIM_STATE says when the process ends. The
// format is described in docs/simulated-host.md.
#pragma once

#include <json/json.h>

#include <stdexcept>
#include <string>

namespace simhost {

// A host file that cannot be read or does not describe a machine.
class HostFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Arranges the machine from VEXOR_SIM_HOST, if set, and arranges for
// VEXOR_SIM_STATE, if set, to receive the state at exit. When the host says
// the process was started by the control manager, SIGTERM and SIGINT are
// delivered to the service as stop controls. A bad host file ends the
// process with a message on standard error and exit status 2.
void prepareProcessFromEnvironment();

// The JSON object a host file holds, its keys not yet checked. Throws
// HostFileError when the file cannot be read or holds no JSON object.
Json::Value readHostFile(const std::string& path);

// Arranges the machine from a host file. Relative drive directories are
// taken from VEXOR_SIM_ROOT if set, else from the host file's folder.
void loadHostFile(const std::string& path);
// The same from the file's parsed content. Files named by "copyFiles" are
// taken from `hostFileFolder`, or from the base directory when it is empty.
void applyHostDescription(const Json::Value& host, const std::string& baseDirectory,
                          const std::string& hostFileFolder = {});

// The machine's state as the state file holds it.
Json::Value describeHostState();
void writeStateFile(const std::string& path);
// The same, with a failure told on standard error instead of thrown.
void writeStateFileOrReport(const std::string& path);

}  // namespace simhost
