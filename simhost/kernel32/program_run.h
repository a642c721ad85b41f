// The programs the simulated host can run, as CreateProcessW starts them:
// each runs on a thread of its own, as its process's one thread, and its
// process exits with the code the program answers.
#pragma once

#include "simhost/kernel32/process_table.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace simhost {
namespace kernel32 {

// What a running program may ask of its process.
class ProgramRun {
public:
    explicit ProgramRun(std::shared_ptr<Process> process);
    // Waits up to a Windows time-out on the host's time scale (INFINITE: for
    // good) for the process to be ended from outside, as Host::reset or
    // markExited end it: true when it was.
    bool endedWithin(DWORD milliseconds) const;

private:
    std::shared_ptr<ExitSignal> exit_;
};

// A program's body: given the command line's text after the program's name,
// it answers its exit code.
using ProgramBody = std::function<DWORD(const std::wstring& arguments, const ProgramRun& run)>;

// The program of a full image path (any case); null for one the host does
// not know.
ProgramBody findProgram(const std::wstring& imagePath);
// The image path of the known program at this path, as the host spells it;
// nothing for a path of no known program.
std::optional<std::wstring> knownImagePath(const std::wstring& path);

// What a command line starts: a known program and the text after its name.
struct ProgramStart {
    std::wstring imagePath;
    std::wstring arguments;
};
// The program CreateProcessW runs for these arguments, by the documented
// search order; nothing when the host knows no such program.
std::optional<ProgramStart> resolveProgram(const wchar_t* applicationName, const std::wstring& commandLine);

// Runs the program on a thread of its own for a started process: the process
// exits with the program's code. The thread is joined at Host::reset, which
// first ends the process so that a program waiting in endedWithin returns.
void launchProgram(std::shared_ptr<Process> process, const std::wstring& commandLine, ProgramStart start);

// The rundll32 program: "<dll>,<entry> <arguments>" for the entries the host
// knows.
DWORD runRundll32(const std::wstring& arguments, const ProgramRun& run);

}  // namespace kernel32
}  // namespace simhost
