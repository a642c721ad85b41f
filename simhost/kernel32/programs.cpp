// The programs the host knows by their image path, the threads they run on,
// and the record of the command lines started.
#include "simhost/kernel32/programs.h"

#include "simhost/core/host.h"
#include "simhost/crt/crt.h"
#include "simhost/kernel32/program_run.h"

#include <atomic>
#include <thread>
#include <vector>

namespace simhost {
namespace kernel32 {
namespace {

// The code of a program's process that the host ends at Host::reset.
constexpr DWORD kEndedByHost = 1;

struct KnownProgram {
    const wchar_t* imagePath;
    DWORD (*body)(const std::wstring&, const ProgramRun&);
};

const KnownProgram kKnownPrograms[] = {
    {L"C:\\Windows\\System32\\rundll32.exe", runRundll32},
};

struct Running {
    std::shared_ptr<Process> process;
    std::shared_ptr<std::atomic<bool>> finished;
    std::thread thread;
};

struct ProgramState {
    std::mutex mutex;
    std::vector<std::wstring> commandLines;
    std::vector<Running> running;

    // A new machine: every program still running is ended and waited for.
    ~ProgramState() {
        for (Running& program : running) {
            program.process->exit(kEndedByHost);
            program.thread.join();
        }
    }

    // Joins the threads of programs that have ended; called under `mutex`.
    void joinFinished() {
        for (auto it = running.begin(); it != running.end();) {
            if (!*it->finished) {
                ++it;
                continue;
            }
            it->thread.join();
            it = running.erase(it);
        }
    }
};

const KnownProgram* knownProgram(const std::wstring& imagePath) {
    for (const KnownProgram& program : kKnownPrograms)
        if (_wcsicmp(program.imagePath, imagePath.c_str()) == 0) return &program;
    return nullptr;
}

ProgramState& programState() { return Host::get().state<ProgramState>(); }

}  // namespace

ProgramRun::ProgramRun(std::shared_ptr<Process> process) : exit_(std::make_shared<ThreadHandle>(process)) {
    process->attach(exit_);
}

bool ProgramRun::endedWithin(DWORD milliseconds) const { return exit_->wait(milliseconds) == WAIT_OBJECT_0; }

ProgramBody findProgram(const std::wstring& imagePath) {
    const KnownProgram* program = knownProgram(imagePath);
    return program ? program->body : nullptr;
}

std::optional<std::wstring> knownImagePath(const std::wstring& path) {
    const KnownProgram* program = knownProgram(path);
    return program ? std::optional<std::wstring>(program->imagePath) : std::nullopt;
}

void launchProgram(std::shared_ptr<Process> process, const std::wstring& commandLine, ProgramStart start) {
    ProgramBody body = findProgram(start.imagePath);
    auto finished = std::make_shared<std::atomic<bool>>(false);
    std::thread thread([process, finished, body, arguments = std::move(start.arguments)] {
        ProgramRun run(process);
        process->exit(body(arguments, run));
        *finished = true;
    });
    ProgramState& state = programState();
    std::lock_guard<std::mutex> hold(state.mutex);
    state.joinFinished();
    state.commandLines.push_back(commandLine);
    state.running.push_back(Running{std::move(process), std::move(finished), std::move(thread)});
}

std::vector<std::wstring> processRuns() {
    ProgramState& state = programState();
    std::lock_guard<std::mutex> hold(state.mutex);
    return state.commandLines;
}

}  // namespace kernel32
}  // namespace simhost
