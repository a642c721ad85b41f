// printui of the simulated host: the printer installation tool that
// "rundll32 printui.dll,PrintUIEntry" runs, and the test and host API that
// says how each installation goes.
#pragma once

#include "simhost/wintypes.h"

#include <string>

namespace simhost {
namespace kernel32 {
class ProgramRun;
}

namespace printui {

enum class InstallerOutcome {
    Installs,
    // The tool exits with 1 without installing.
    Fails,
    // The tool never ends, until its process is ended or the host reset.
    Hangs,
};

// How the installation of one driver goes: after `delayMs` on the host's
// time scale, the outcome.
struct InstallerBehaviour {
    InstallerOutcome outcome = InstallerOutcome::Installs;
    DWORD delayMs = 0;
};

// The behaviour for a driver name (any case); every driver installs at once
// unless set. Until Host::reset.
void setInstallerBehaviour(const std::wstring& driverName, InstallerBehaviour behaviour);
InstallerBehaviour installerBehaviour(const std::wstring& driverName);

// PrintUIEntry with the text after its name on the command line; answers the
// tool's exit code.
DWORD printUiEntry(const std::wstring& arguments, const kernel32::ProgramRun& run);

}  // namespace printui
}  // namespace simhost
