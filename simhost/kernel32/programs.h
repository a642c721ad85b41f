// Test and host API of the programs CreateProcessW runs on the simulated
// host.
#pragma once

#include <string>
#include <vector>

namespace simhost {
namespace kernel32 {

// Every command line CreateProcessW started a process for, in order, until
// Host::reset.
std::vector<std::wstring> processRuns();

}  // namespace kernel32
}  // namespace simhost
