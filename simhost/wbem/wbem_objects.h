// The objects of the host's management instrumentation, shared by the files
// of simhost/wbem and by CoCreateInstance.
#pragma once

#include "simhost/ole32/com_objects.h"
#include "simhost/wbem/wbem.h"
#include "simhost/winspool/spooler.h"

#include <string>
#include <vector>

namespace simhost {
namespace wbem {

// The locator, as CoCreateInstance makes it for CLSID_WbemLocator: the
// interface asked for, or E_NOINTERFACE.
HRESULT createLocator(REFIID interfaceId, void** object);

// One property of an instance: its CIM type and value, or null.
struct PropertyValue {
    CIMTYPE type = CIM_STRING;
    bool null = false;
    std::wstring text;  // CIM_STRING
    DWORD number = 0;   // CIM_UINT32
    bool flag = false;  // CIM_BOOLEAN
};
struct Property {
    std::wstring name;
    PropertyValue value;
};

// The Win32_Printer instance of a printer, its properties in a fixed order.
std::vector<Property> printerProperties(const winspool::SpoolerPrinter& printer);
// The property of that name, compared regardless of case as WMI compares
// names; null when the class has none.
Property* findProperty(std::vector<Property>& properties, const std::wstring& name);
// Writes an instance back to the printer its DeviceID names: EnableBIDI
// becomes PRINTER_ATTRIBUTE_ENABLE_BIDI (a null value leaves it).
// WBEM_E_NOT_FOUND for no such printer, WBEM_E_ACCESS_DENIED for a caller
// who may not administer it.
HRESULT updatePrinter(std::vector<Property>& properties);

// A Win32_Printer instance as the enumeration hands it out.
class PrinterObject : public ole32::ComObject<IWbemClassObject> {
public:
    explicit PrinterObject(std::vector<Property> properties);
    HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type, LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) override;
    std::vector<Property>& properties() { return properties_; }

private:
    std::vector<Property> properties_;
};

}  // namespace wbem
}  // namespace simhost
