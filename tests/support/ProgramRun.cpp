#include "support/ProgramRun.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <fstream>
#include <sstream>

namespace testsupport {

ProgramResult runCommand(const std::string& commandLine) {
    ProgramResult result;
    FILE* pipe = popen(commandLine.c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, n);
    int status = pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

BackgroundProgram::BackgroundProgram(const std::string& commandLine, std::filesystem::path outputFile)
    : outputFile_(std::move(outputFile)) {
    // Through env, so that leading variable assignments work and the pid is
    // the program's own, for its signals.
    const std::string shellLine = "exec env " + commandLine + " >'" + outputFile_.string() + "' 2>&1";
    pid_ = fork();
    if (pid_ == 0) {
        execl("/bin/sh", "sh", "-c", shellLine.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
}

BackgroundProgram::~BackgroundProgram() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

bool BackgroundProgram::waitForOutput(const std::string& text, int timeoutMs) const {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (output().find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

void BackgroundProgram::signal(int number) const {
    if (pid_ > 0) kill(pid_, number);
}

int BackgroundProgram::waitForExit(int timeoutMs) {
    if (pid_ <= 0) return -1;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            pid_ = -1;
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace testsupport
