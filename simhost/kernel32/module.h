// Test and host API of the module path the simulated process answers.
#pragma once

#include <string>

namespace simhost {
namespace kernel32 {

// The path GetModuleFileNameW answers for this program; by default
// "C:\Program Files\Quillion\VexorAgent\VexorPrintingService.exe", and
// again after Host::reset.
void setModuleFileName(const std::wstring& path);
std::wstring moduleFileName();

}  // namespace kernel32
}  // namespace simhost
