// Win32_Printer instances: what management instrumentation reports of a
// spooler printer, and the one property it writes back. The boolean
// properties stand for the printer's attribute bits, as the class documents
// them.
#include "simhost/wbem/wbem_objects.h"

#include "simhost/winspool/spooler_state.h"

namespace simhost {
namespace wbem {
namespace {

struct AttributeProperty {
    const wchar_t* name;
    DWORD bit;
};

const AttributeProperty kAttributeProperties[] = {
    {L"Queued", PRINTER_ATTRIBUTE_QUEUED},
    {L"Direct", PRINTER_ATTRIBUTE_DIRECT},
    {L"Default", PRINTER_ATTRIBUTE_DEFAULT},
    {L"Shared", PRINTER_ATTRIBUTE_SHARED},
    {L"Network", PRINTER_ATTRIBUTE_NETWORK},
    {L"Hidden", PRINTER_ATTRIBUTE_HIDDEN},
    {L"Local", PRINTER_ATTRIBUTE_LOCAL},
    {L"EnableDevQueryPrint", PRINTER_ATTRIBUTE_ENABLE_DEVQ},
    {L"KeepPrintedJobs", PRINTER_ATTRIBUTE_KEEPPRINTEDJOBS},
    {L"DoCompleteFirst", PRINTER_ATTRIBUTE_DO_COMPLETE_FIRST},
    {L"WorkOffline", PRINTER_ATTRIBUTE_WORK_OFFLINE},
    {L"EnableBIDI", PRINTER_ATTRIBUTE_ENABLE_BIDI},
    {L"RawOnly", PRINTER_ATTRIBUTE_RAW_ONLY},
    {L"Published", PRINTER_ATTRIBUTE_PUBLISHED},
};

Property text(const wchar_t* name, const std::wstring& value) { return {name, {CIM_STRING, false, value}}; }

// WMI reports a text the printer does not have as null.
Property optionalText(const wchar_t* name, const std::wstring& value) {
    return {name, {CIM_STRING, value.empty(), value}};
}

Property number(const wchar_t* name, DWORD value) { return {name, {CIM_UINT32, false, {}, value}}; }

Property flag(const wchar_t* name, bool value) { return {name, {CIM_BOOLEAN, false, {}, 0, value}}; }

}  // namespace

std::vector<Property> printerProperties(const winspool::SpoolerPrinter& printer) {
    std::vector<Property> properties = {
        text(L"Name", printer.name),
        text(L"DeviceID", printer.name),
        text(L"DriverName", printer.driverName),
        text(L"PortName", printer.portName),
        optionalText(L"ShareName", printer.shareName),
        optionalText(L"Comment", printer.comment),
        optionalText(L"Location", printer.location),
        number(L"Attributes", printer.attributes),
        number(L"Priority", printer.priority),
    };
    for (const AttributeProperty& attribute : kAttributeProperties)
        properties.push_back(flag(attribute.name, printer.attributes & attribute.bit));
    return properties;
}

Property* findProperty(std::vector<Property>& properties, const std::wstring& name) {
    for (Property& property : properties)
        if (winspool::sameName(property.name, name)) return &property;
    return nullptr;
}

HRESULT updatePrinter(std::vector<Property>& properties) {
    const Property* key = findProperty(properties, L"DeviceID");
    const Property* bidi = findProperty(properties, L"EnableBIDI");
    const bool on = !bidi->value.null && bidi->value.flag;
    const bool off = !bidi->value.null && !bidi->value.flag;
    DWORD error = winspool::changePrinterAttributes(key->value.text, on ? PRINTER_ATTRIBUTE_ENABLE_BIDI : 0,
                                                    off ? PRINTER_ATTRIBUTE_ENABLE_BIDI : 0);
    if (error == ERROR_ACCESS_DENIED) return WBEM_E_ACCESS_DENIED;
    return error ? WBEM_E_NOT_FOUND : WBEM_S_NO_ERROR;
}

}  // namespace wbem
}  // namespace simhost
