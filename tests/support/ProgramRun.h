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

// A program run through the shell in the background, its standard output
// and error going to a file, as a person leaves a plugin running in a
// terminal. Killed when it goes, if it still runs.
class BackgroundProgram {
public:
    BackgroundProgram(const std::string& commandLine, std::filesystem::path outputFile);
    ~BackgroundProgram();
    BackgroundProgram(const BackgroundProgram&) = delete;
    BackgroundProgram& operator=(const BackgroundProgram&) = delete;

    std::string output() const { return readFile(outputFile_); }
    // True once the output holds `text`; false after `timeoutMs`.
    bool waitForOutput(const std::string& text, int timeoutMs = 10000) const;
    void signal(int number) const;
    // The exit code once the program has ended; -1 when it ended by a signal
    // or did not end within `timeoutMs` (it is then killed).
    int waitForExit(int timeoutMs = 10000);

private:
    int pid_ = -1;
    std::filesystem::path outputFile_;
};

}  // namespace testsupport
