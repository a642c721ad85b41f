#include "simhost/hostfile/host_file.h"

#include "simhost/control/control_socket.h"

#include "simhost/core/host.h"
#include "simhost/hostfile/host_sections.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace simhost {

namespace {

// Every key the host file may hold; anything else is a mistake worth saying.
void checkKnownKeys(const Json::Value& host) {
    for (const std::string& key : host.getMemberNames())
        if (!isHostSection(key)) throw HostFileError("unknown key \"" + key + "\" in the host file");
}

std::string stateFilePath;
std::string sourceDirectory;

void writeStateAtExit() { writeStateFileOrReport(stateFilePath); }

}  // namespace

const std::string& hostFileDirectory() { return sourceDirectory; }

Json::Value readHostFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw HostFileError("cannot read the host file " + path);
    Json::CharReaderBuilder builder;
    Json::Value value;
    std::string errors;
    if (!Json::parseFromStream(builder, in, &value, &errors))
        throw HostFileError(path + " is not JSON: " + errors);
    if (!value.isObject()) throw HostFileError(path + " does not hold a JSON object");
    return value;
}

void applyHostDescription(const Json::Value& host, const std::string& baseDirectory,
                          const std::string& hostFileFolder) {
    checkKnownKeys(host);
    sourceDirectory = hostFileFolder.empty() ? baseDirectory : hostFileFolder;
    for (const HostSection& section : hostSections())
        if (host.isMember(section.key)) section.apply(host[section.key], baseDirectory);
}

void loadHostFile(const std::string& path) {
    Json::Value host = readHostFile(path);
    const char* root = std::getenv("VEXOR_SIM_ROOT");
    std::string directory = std::filesystem::absolute(path).parent_path().string();
    applyHostDescription(host, root && *root ? root : directory, directory);
}

Json::Value describeHostState() {
    Json::Value state(Json::objectValue);
    for (const HostSection& section : hostSections())
        if (section.describe) state[section.key] = section.describe();
    return state;
}

// Written beside the file and then renamed over it, so that a reader never
// sees half a state, even while the service runs.
void writeStateFile(const std::string& path) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    const std::string partial = path + ".partial";
    {
        std::ofstream out(partial, std::ios::trunc);
        if (!out) throw HostFileError("cannot write " + path);
        out << Json::writeString(writer, describeHostState()) << "\n";
        if (!out.flush()) throw HostFileError("cannot write " + path);
    }
    std::error_code error;
    std::filesystem::rename(partial, path, error);
    if (error) throw HostFileError("cannot write " + path + ": " + error.message());
}

void writeStateFileOrReport(const std::string& path) {
    try {
        writeStateFile(path);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "simulated host: cannot write the state file: %s\n", e.what());
    }
}

void prepareProcessFromEnvironment() {
    const char* hostFile = std::getenv("VEXOR_SIM_HOST");
    if (hostFile && *hostFile) {
        try {
            loadHostFile(hostFile);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "simulated host: %s\n", e.what());
            std::exit(2);
        }
    }
    const char* stateFile = std::getenv("VEXOR_SIM_STATE");
    if (stateFile && *stateFile) {
        stateFilePath = stateFile;
        std::atexit(writeStateAtExit);
    }
    startControlSignalBridge(stateFilePath);
    const char* controlSocket = std::getenv("VEXOR_SIM_CONTROL");
    if (controlSocket && *controlSocket) {
        try {
            control::startControlSocket(controlSocket);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "simulated host: cannot serve the control socket at %s: %s\n", controlSocket, e.what());
            std::exit(2);
        }
        std::atexit(control::stopControlSocket);
    }
}

}  // namespace simhost
