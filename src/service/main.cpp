// The service executable: readies the platform, then hands the wide
// arguments to the entry point.
#include "platform/platform.h"
#include "service/ServiceEntry.h"

#include <string>
#include <vector>

int main(int argc, char** argv) {
    platform::prepareHost();
    std::vector<std::wstring> arguments = platform::wideArguments(argc, argv);
    std::vector<wchar_t*> pointers;
    for (std::wstring& argument : arguments) pointers.push_back(&argument[0]);
    pointers.push_back(nullptr);
    return serviceEntry(static_cast<int>(arguments.size()), pointers.data());
}
