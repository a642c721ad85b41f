// CoCreateInstance over the classes this machine has registered. The only
// one is the WMI locator, an in-process server.
#include "simhost/core/host.h"
#include "simhost/ole32/com_objects.h"
#include "simhost/wbem/wbem_objects.h"

const IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// *object is null unless the call succeeds. Without COM on the calling
// thread: CO_E_NOTINITIALIZED. An outer object: CLASS_E_NOAGGREGATION, as
// the locator cannot be aggregated. A class this machine lacks, or a
// context without CLSCTX_INPROC_SERVER (the locator is registered
// in-process only): REGDB_E_CLASSNOTREG. An interface the object lacks:
// E_NOINTERFACE. An injected failure answers HRESULT_FROM_WIN32 of its error.
HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                LPVOID* object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (DWORD error = simhost::injectedFailure("CoCreateInstance")) return HRESULT_FROM_WIN32(error);
    if (simhost::ole32::initializationCount() == 0) return CO_E_NOTINITIALIZED;
    if (outer) return CLASS_E_NOAGGREGATION;
    if (classId != CLSID_WbemLocator || !(context & CLSCTX_INPROC_SERVER)) return REGDB_E_CLASSNOTREG;
    return simhost::wbem::createLocator(interfaceId, object);
}
