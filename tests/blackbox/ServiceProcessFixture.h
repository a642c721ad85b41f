// The fixture of the black-box suite: a temporary run folder, the service
// executable started on a host of examples/hosts (or a copy with a test's
// additions) as the control manager would start it, and its log and state
// files read back.
#pragma once

#include "support/ProgramRun.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace blackbox {

namespace fs = std::filesystem;
using testsupport::ProgramResult;
using testsupport::readFile;
using testsupport::runCommand;

class ServiceProcess : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "vexor-blackbox-XXXXXX").string();
        ASSERT_TRUE(mkdtemp(pattern.data()));
        root_ = pattern;
    }
    void TearDown() override {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        fs::remove_all(root_);
    }

    std::string examplesHosts() const { return std::string(VEXOR_SOURCE_DIR) + "/examples/hosts/"; }
    // The example host file, or a copy of it in the run's folder with the
    // test's additions when it has some.
    std::string hostFile() const { return hostAdditions_.isNull() ? examplesHosts() + hostName_ : (root_ / "host.json").string(); }
    void writeHostWithAdditions() const {
        Json::Value host;
        std::ifstream example(examplesHosts() + hostName_);
        ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), example, &host, nullptr));
        for (const std::string& key : hostAdditions_.getMemberNames()) host[key] = hostAdditions_[key];
        // The copy's driver packages are still those beside the example.
        for (const std::string& target : host["copyFiles"].getMemberNames())
            host["copyFiles"][target] = examplesHosts() + host["copyFiles"][target].asString();
        std::ofstream(root_ / "host.json") << host.toStyledString();
    }
    std::string environment() const {
        return "VEXOR_SIM_HOST='" + hostFile() + "' VEXOR_SIM_ROOT='" + root_.string() + "' VEXOR_SIM_STATE='" +
               statePath().string() + "' VEXOR_SIM_CONTROL='" + controlPath().string() + "'";
    }
    fs::path statePath() const { return root_ / "state.json"; }
    fs::path controlPath() const { return root_ / "control.sock"; }
    fs::path logDirectory() const { return root_ / "drive-c" / "ProgramData" / "Quillion" / "VexorAgent" / "logs"; }

    std::string logText() const {
        std::string text;
        if (!fs::exists(logDirectory())) return text;
        for (const auto& entry : fs::directory_iterator(logDirectory())) text += readFile(entry.path());
        return text;
    }

    bool waitForLog(const std::string& text, int timeoutMs = 10000) const {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (std::chrono::steady_clock::now() < deadline) {
            if (logText().find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    void startService() {
        if (!hostAdditions_.isNull()) writeHostWithAdditions();
        pid_ = fork();
        if (pid_ == 0) {
            setenv("VEXOR_SIM_HOST", hostFile().c_str(), 1);
            setenv("VEXOR_SIM_ROOT", root_.c_str(), 1);
            setenv("VEXOR_SIM_STATE", statePath().c_str(), 1);
            setenv("VEXOR_SIM_CONTROL", controlPath().c_str(), 1);
            execl(VEXOR_SERVICE_EXE, VEXOR_SERVICE_EXE, static_cast<char*>(nullptr));
            _exit(127);
        }
    }

    int stopService() {
        kill(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    ProgramResult vexorctl(const std::string& arguments) const {
        return runCommand(environment() + " '" VEXORCTL_EXE "' " + arguments + " 2>&1");
    }

    // The state of the running service's machine, asked for with SIGUSR1.
    Json::Value requestState() const {
        fs::remove(statePath());
        kill(pid_, SIGUSR1);
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!fs::exists(statePath()) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return readState();
    }

    Json::Value readState() const {
        Json::Value state;
        std::ifstream stateFile(statePath());
        std::string errors;
        EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), stateFile, &state, &errors)) << errors;
        return state;
    }

    fs::path root_;
    // The host file of examples/hosts the service runs on.
    std::string hostName_ = "demo.json";
    // Keys that replace the example's, or null.
    Json::Value hostAdditions_;
    pid_t pid_ = -1;
};

}  // namespace blackbox
