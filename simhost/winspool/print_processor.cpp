// The print processor the machine has: "winprint", with the datatypes that
// a default Windows installation lists for it.
#include "simhost/winspool/spooler_state.h"

namespace simhost {
namespace winspool {
namespace {

const wchar_t* const kDatatypes[] = {L"RAW",          L"RAW [FF appended]", L"RAW [FF auto]", L"NT EMF 1.003",
                                     L"NT EMF 1.006", L"NT EMF 1.007",      L"NT EMF 1.008", L"TEXT",
                                     L"XPS2GDI"};

}  // namespace

bool isPrintProcessor(const std::wstring& name) { return sameName(name, kPrintProcessor); }

bool isProcessorDatatype(const std::wstring& datatype) {
    for (const wchar_t* known : kDatatypes)
        if (sameName(datatype, known)) return true;
    return false;
}

}  // namespace winspool
}  // namespace simhost
