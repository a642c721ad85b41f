#include "support/ProgramRun.h"

#include <sys/wait.h>

#include <cstdio>
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

}  // namespace testsupport
