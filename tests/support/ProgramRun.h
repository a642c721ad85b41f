// Built programs run as a user runs them, through the shell, and the files
// they leave read back.
#pragma once

#include <filesystem>
#include <string>

namespace testsupport {

struct ProgramResult {
    int exitCode = -1;
    std::string output;
};

// Runs a shell command line and answers its exit code and standard output.
ProgramResult runCommand(const std::string& commandLine);

// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);

}  // namespace testsupport
