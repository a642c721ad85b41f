// Management instrumentation of the simulated host: the locator and
// ROOT\CIMV2, the Win32_Printer enumeration over the spooler's printers,
// reading and setting properties, committing EnableBIDI to the printer's
// attributes, what callers keep referenced, the state file's report of it,
// and the faults of every call.
#include "simhost/advapi32/tokens.h"
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "host_file_test_helpers.h"
#include "simhost/kernel32/memory.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/toolhelp.h"
#include "simhost/ole32/com_objects.h"
#include "simhost/wbem/wbem.h"
#include "winspool_test_helpers.h"

#include <string>
#include <vector>

using namespace winspool_test;
using simhost::ole32::liveObjects;

namespace {

namespace spooler = simhost::winspool;

// A connection to ROOT\CIMV2 and the instances of one query, each object
// released by the test unless it keeps it on purpose.
class Wmi : public Spooler {
protected:
    void SetUp() override {
        Spooler::SetUp();
        installDriver();
        addRawPort(L"VexorPort_1");
        addPrinterOn(L"Local Desk", L"VexorPort_1");
        addPrinterOn(L"Local Hall", L"VexorPort_1");
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        ASSERT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                   reinterpret_cast<LPVOID*>(&locator_)),
                  S_OK);
    }
    void TearDown() override {
        if (services_) services_->Release();
        locator_->Release();
        CoUninitialize();
        EXPECT_EQ(simhost::kernel32::releaseAllBlocks(), 0u) << "strings not freed";
        Spooler::TearDown();
    }

    HRESULT connect(const wchar_t* nameSpace, const wchar_t* user = nullptr, LONG flags = 0) {
        BSTR path = SysAllocString(nameSpace);
        BSTR account = SysAllocString(user);
        HRESULT result = locator_->ConnectServer(path, account, nullptr, nullptr, flags, nullptr, nullptr, &services_);
        SysFreeString(account);
        SysFreeString(path);
        return result;
    }
    HRESULT query(const wchar_t* text, IEnumWbemClassObject** enumerator, const wchar_t* language = L"WQL") {
        BSTR wql = SysAllocString(language);
        BSTR query = SysAllocString(text);
        HRESULT result = services_->ExecQuery(wql, query, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                              nullptr, enumerator);
        SysFreeString(query);
        SysFreeString(wql);
        return result;
    }
    // Every instance of the printers, in the spooler's order.
    std::vector<IWbemClassObject*> printers() {
        EXPECT_EQ(connect(L"ROOT\\CIMV2"), S_OK);
        IEnumWbemClassObject* enumerator = nullptr;
        EXPECT_EQ(query(L"SELECT * FROM Win32_Printer", &enumerator), S_OK);
        std::vector<IWbemClassObject*> objects;
        IWbemClassObject* object = nullptr;
        ULONG returned = 0;
        while (enumerator->Next(WBEM_INFINITE, 1, &object, &returned) == WBEM_S_NO_ERROR) objects.push_back(object);
        enumerator->Release();
        return objects;
    }
    static void release(const std::vector<IWbemClassObject*>& objects) {
        for (IWbemClassObject* object : objects) object->Release();
    }
    static std::wstring textOf(IWbemClassObject* object, const wchar_t* property) {
        VARIANT value{};
        EXPECT_EQ(object->Get(property, 0, &value, nullptr, nullptr), S_OK);
        std::wstring text = value.vt == VT_BSTR ? value.bstrVal : L"(not text)";
        VariantClear(&value);
        return text;
    }
    static HRESULT putBool(IWbemClassObject* object, const wchar_t* property, VARIANT_BOOL flag) {
        VARIANT value{};
        value.vt = VT_BOOL;
        value.boolVal = flag;
        return object->Put(property, 0, &value, 0);
    }
    static DWORD attributesOf(const wchar_t* printer) { return spooler::findPrinter(printer)->attributes; }

    IWbemLocator* locator_ = nullptr;
    IWbemServices* services_ = nullptr;
};

// ---- Connecting ----

TEST_F(Wmi, TheLocatorConnectsToThisMachinesCimv2InAnySpelling) {
    for (const wchar_t* path : {L"ROOT\\CIMV2", L"root\\cimv2", L"root/cimv2", L"\\\\.\\root\\cimv2"}) {
        ASSERT_EQ(connect(path), S_OK) << simhost::narrow(path);
        ASSERT_NE(services_, nullptr);
        services_->Release();
        services_ = nullptr;
    }
    EXPECT_EQ(connect(L"ROOT\\DEFAULT"), WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(services_, nullptr);
    EXPECT_EQ(connect(L"ROOT\\CIMV2", L"alice"), static_cast<HRESULT>(0x80041064L)) << "local credentials";
    EXPECT_EQ(connect(L"ROOT\\CIMV2", nullptr, 0x40), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(locator_->ConnectServer(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services_),
              WBEM_E_INVALID_PARAMETER);
}

TEST_F(Wmi, TheFirstConnectionSetsTheProcessSecurityImplicitly) {
    ASSERT_EQ(connect(L"ROOT\\CIMV2"), S_OK);
    EXPECT_TRUE(simhost::ole32::securityInitialized());
    EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 0, 3, nullptr, 0, nullptr), RPC_E_TOO_LATE);
}

// ---- Querying ----

TEST_F(Wmi, OnlyTheSelectionOfAllPrintersIsAnswered) {
    ASSERT_EQ(connect(L"ROOT\\CIMV2"), S_OK);
    IEnumWbemClassObject* enumerator = reinterpret_cast<IEnumWbemClassObject*>(this);
    EXPECT_EQ(query(L"SELECT * FROM Win32_Printer", &enumerator, L"SQL"), WBEM_E_INVALID_QUERY_TYPE);
    EXPECT_EQ(enumerator, nullptr);
    EXPECT_EQ(query(L"SELECT * FROM Win32_Service", &enumerator), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(query(L"SELECT * FROM Win32_Printer WHERE Name = 'x'", &enumerator), WBEM_E_INVALID_QUERY);
    EXPECT_EQ(query(L"DELETE Win32_Printer", &enumerator), WBEM_E_INVALID_QUERY);
    ASSERT_EQ(query(L"  select *   from   WIN32_PRINTER ", &enumerator, L"wql"), S_OK);
    enumerator->Release();
}

TEST_F(Wmi, TheEnumerationWalksTheVisiblePrintersOnceForward) {
    addPrinterOn(L"Going", L"VexorPort_1");
    HANDLE going = openPrinter(L"Going", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(DeletePrinter(going));
    std::vector<IWbemClassObject*> objects = printers();
    ASSERT_EQ(objects.size(), 2u) << "a printer pending deletion is not listed";
    EXPECT_EQ(textOf(objects[0], L"Name"), L"Local Desk");
    EXPECT_EQ(textOf(objects[1], L"Name"), L"Local Hall");
    release(objects);
    ClosePrinter(going);
}

TEST_F(Wmi, NextHandsOutWhatIsLeftAndLeavesTheOtherSlotsAlone) {
    ASSERT_EQ(connect(L"ROOT\\CIMV2"), S_OK);
    IEnumWbemClassObject* enumerator = nullptr;
    ASSERT_EQ(query(L"SELECT * FROM Win32_Printer", &enumerator), S_OK);
    IWbemClassObject* sentinel = reinterpret_cast<IWbemClassObject*>(this);
    IWbemClassObject* objects[3] = {sentinel, sentinel, sentinel};
    ULONG returned = 7;
    EXPECT_EQ(enumerator->Next(WBEM_INFINITE, 3, objects, &returned), WBEM_S_FALSE);
    EXPECT_EQ(returned, 2u);
    EXPECT_EQ(objects[2], sentinel);
    IWbemClassObject* last = objects[1];
    EXPECT_EQ(enumerator->Next(0, 1, &objects[1], &returned), WBEM_S_FALSE);
    EXPECT_EQ(returned, 0u);
    EXPECT_EQ(objects[1], last) << "at the end the slot keeps the last object";
    EXPECT_EQ(enumerator->Next(-5, 1, objects, &returned), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(enumerator->Next(WBEM_INFINITE, 1, nullptr, &returned), WBEM_E_INVALID_PARAMETER);
    objects[0]->Release();
    objects[1]->Release();
    enumerator->Release();
}

// ---- Properties ----

TEST_F(Wmi, AnInstanceShowsThePrinterWithItsAttributeBits) {
    spooler::changePrinterAttributes(L"Local Desk", PRINTER_ATTRIBUTE_ENABLE_BIDI | PRINTER_ATTRIBUTE_SHARED, 0);
    std::vector<IWbemClassObject*> objects = printers();
    IWbemClassObject* desk = objects[0];
    EXPECT_EQ(textOf(desk, L"DeviceID"), L"Local Desk");
    EXPECT_EQ(textOf(desk, L"driverName"), kDriver) << "names compare regardless of case";
    EXPECT_EQ(textOf(desk, L"PortName"), L"VexorPort_1");
    VARIANT value{};
    CIMTYPE type = -1;
    LONG flavor = -1;
    ASSERT_EQ(desk->Get(L"EnableBIDI", 0, &value, &type, &flavor), S_OK);
    EXPECT_EQ(value.vt, VT_BOOL);
    EXPECT_EQ(value.boolVal, VARIANT_TRUE);
    EXPECT_EQ(type, CIM_BOOLEAN);
    EXPECT_EQ(flavor, 0);
    ASSERT_EQ(desk->Get(L"Attributes", 0, &value, &type, nullptr), S_OK);
    EXPECT_EQ(value.vt, VT_I4);
    EXPECT_EQ(static_cast<DWORD>(value.lVal), attributesOf(L"Local Desk"));
    EXPECT_EQ(type, CIM_UINT32);
    ASSERT_EQ(desk->Get(L"Comment", 0, &value, &type, nullptr), S_OK);
    EXPECT_EQ(value.vt, VT_NULL) << "a text the printer lacks is null";
    EXPECT_EQ(type, CIM_STRING);
    ASSERT_EQ(objects[1]->Get(L"EnableBIDI", 0, &value, nullptr, nullptr), S_OK);
    EXPECT_EQ(value.boolVal, VARIANT_FALSE);
    value.vt = VT_I2;
    EXPECT_EQ(desk->Get(L"NoSuchProperty", 0, &value, nullptr, nullptr), WBEM_E_NOT_FOUND);
    EXPECT_EQ(value.vt, VT_I2) << "a failed read leaves the variant alone";
    EXPECT_EQ(desk->Get(nullptr, 0, &value, nullptr, nullptr), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(desk->Get(L"Name", 1, &value, nullptr, nullptr), WBEM_E_INVALID_PARAMETER);
    release(objects);
}

TEST_F(Wmi, AnyTrueBooleanPutAndCommittedSwitchesBidiOn) {
    std::vector<IWbemClassObject*> objects = printers();
    IWbemClassObject* hall = objects[1];
    ASSERT_EQ(putBool(hall, L"EnableBIDI", 1), S_OK);
    EXPECT_FALSE(attributesOf(L"Local Hall") & PRINTER_ATTRIBUTE_ENABLE_BIDI) << "the object alone changed";
    VARIANT value{};
    ASSERT_EQ(hall->Get(L"EnableBIDI", 0, &value, nullptr, nullptr), S_OK);
    EXPECT_EQ(value.boolVal, VARIANT_TRUE) << "read back as the platform's true";
    ASSERT_EQ(services_->PutInstance(hall, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), S_OK);
    EXPECT_EQ(attributesOf(L"Local Hall"), PRINTER_ATTRIBUTE_LOCAL | PRINTER_ATTRIBUTE_ENABLE_BIDI);
    EXPECT_FALSE(attributesOf(L"Local Desk") & PRINTER_ATTRIBUTE_ENABLE_BIDI);
    ASSERT_EQ(putBool(hall, L"EnableBIDI", VARIANT_FALSE), S_OK);
    ASSERT_EQ(services_->PutInstance(hall, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), S_OK);
    EXPECT_EQ(attributesOf(L"Local Hall"), PRINTER_ATTRIBUTE_LOCAL);
    release(objects);
}

TEST_F(Wmi, APutMustMatchAPropertyOfTheClassAndItsType) {
    std::vector<IWbemClassObject*> objects = printers();
    IWbemClassObject* desk = objects[0];
    EXPECT_EQ(putBool(desk, L"NoSuchProperty", 1), WBEM_E_NOT_FOUND) << "an instance gets no new property";
    EXPECT_EQ(putBool(desk, L"Name", 1), WBEM_E_TYPE_MISMATCH);
    VARIANT text{};
    text.vt = VT_BSTR;
    text.bstrVal = SysAllocString(L"-1");
    EXPECT_EQ(desk->Put(L"EnableBIDI", 0, &text, 0), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(desk->Put(L"Comment", 0, &text, CIM_STRING), WBEM_E_INVALID_PARAMETER) << "an instance's type is fixed";
    EXPECT_EQ(desk->Put(L"Comment", 0, &text, 0), S_OK);
    EXPECT_EQ(textOf(desk, L"Comment"), L"-1");
    VariantClear(&text);
    EXPECT_EQ(desk->Put(L"EnableBIDI", 0, nullptr, 0), S_OK) << "null";
    ASSERT_EQ(services_->PutInstance(desk, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), S_OK);
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL) << "a null value changes nothing";
    release(objects);
}

TEST_F(Wmi, CommittingNeedsThePrinterAndAnAccountThatMayAdministerIt) {
    std::vector<IWbemClassObject*> objects = printers();
    IWbemClassObject* desk = objects[0];
    ASSERT_EQ(putBool(desk, L"EnableBIDI", 1), S_OK);
    EXPECT_EQ(services_->PutInstance(desk, WBEM_FLAG_CREATE_ONLY, nullptr, nullptr), WBEM_E_ALREADY_EXISTS);
    EXPECT_EQ(services_->PutInstance(desk, 3, nullptr, nullptr), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(services_->PutInstance(nullptr, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), WBEM_E_INVALID_PARAMETER);

    simhost::kernel32::addProcess({5000, 4, 2, L"C:\\Windows\\app.exe"});
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, 5000);
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(process, TOKEN_QUERY | TOKEN_DUPLICATE, &token));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token));
    EXPECT_EQ(services_->PutInstance(desk, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), WBEM_E_ACCESS_DENIED);
    ASSERT_TRUE(RevertToSelf());
    CloseHandle(token);
    CloseHandle(process);
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL);

    HANDLE printer = openPrinter(L"Local Desk", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(DeletePrinter(printer));
    ClosePrinter(printer);
    EXPECT_EQ(services_->PutInstance(desk, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), WBEM_E_NOT_FOUND);
    EXPECT_EQ(services_->PutInstance(desk, WBEM_FLAG_CREATE_OR_UPDATE, nullptr, nullptr), WBEM_E_NOT_SUPPORTED);
    release(objects);
}

// ---- What callers keep ----

TEST_F(Wmi, ObjectsNotReleasedStayCountedAndTheStateFileShowsThem) {
    std::vector<IWbemClassObject*> objects = printers();
    objects[1]->Release();
    std::vector<simhost::ole32::LiveObject> live = liveObjects();
    ASSERT_EQ(live.size(), 3u) << "the locator, the services and one printer";
    EXPECT_EQ(live[2].interfaceName, "IWbemClassObject");
    EXPECT_EQ(live[2].description, L"Win32_Printer.DeviceID=\"Local Desk\"");
    EXPECT_EQ(live[2].references, 1u);
    objects[0]->AddRef();
    Json::Value state = simhost::describeHostState();
    ASSERT_EQ(state["comObjects"].size(), 3u);
    EXPECT_EQ(state["comObjects"][0]["interface"].asString(), "IWbemLocator");
    EXPECT_EQ(state["comObjects"][1]["object"].asString(), "ROOT\\CIMV2");
    EXPECT_EQ(state["comObjects"][2]["object"].asString(), "Win32_Printer.DeviceID=\"Local Desk\"");
    EXPECT_EQ(state["comObjects"][2]["references"].asUInt(), 2u);
    objects[0]->Release();
    objects[0]->Release();
    EXPECT_EQ(liveObjects().size(), 2u);
}

TEST_F(Wmi, AHostFileCannotArrangeComObjects) {
    EXPECT_NE(hostfiletest::refusal(R"({"comObjects": []})").find("cannot be arranged"), std::string::npos);
}

// ---- Faults ----

TEST_F(Wmi, EveryCallCanFailWithTheInjectedResultAndChangesNothing) {
    simhost::Faults& faults = simhost::Host::get().faults();
    faults.failCall("IWbemLocator::ConnectServer", static_cast<DWORD>(WBEM_E_ACCESS_DENIED), 1);
    EXPECT_EQ(connect(L"ROOT\\CIMV2"), WBEM_E_ACCESS_DENIED);
    EXPECT_EQ(services_, nullptr);
    ASSERT_EQ(connect(L"ROOT\\CIMV2"), S_OK);
    IEnumWbemClassObject* enumerator = nullptr;
    faults.failCall("IWbemServices::ExecQuery", static_cast<DWORD>(WBEM_E_FAILED), 1);
    EXPECT_EQ(query(L"SELECT * FROM Win32_Printer", &enumerator), WBEM_E_FAILED);
    ASSERT_EQ(query(L"SELECT * FROM Win32_Printer", &enumerator), S_OK);
    IWbemClassObject* object = nullptr;
    ULONG returned = 9;
    faults.failCall("IEnumWbemClassObject::Next", static_cast<DWORD>(WBEM_E_FAILED), 1);
    EXPECT_EQ(enumerator->Next(WBEM_INFINITE, 1, &object, &returned), WBEM_E_FAILED);
    EXPECT_EQ(returned, 0u);
    ASSERT_EQ(enumerator->Next(WBEM_INFINITE, 1, &object, &returned), S_OK);
    EXPECT_EQ(textOf(object, L"Name"), L"Local Desk") << "the failed call handed out nothing";
    VARIANT value{};
    faults.failCall("IWbemClassObject::Get", static_cast<DWORD>(WBEM_E_FAILED), 1);
    EXPECT_EQ(object->Get(L"Name", 0, &value, nullptr, nullptr), WBEM_E_FAILED);
    faults.failCall("IWbemClassObject::Put", static_cast<DWORD>(WBEM_E_FAILED), 1);
    EXPECT_EQ(putBool(object, L"EnableBIDI", 1), WBEM_E_FAILED);
    EXPECT_EQ(textOf(object, L"EnableBIDI"), L"(not text)");
    ASSERT_EQ(putBool(object, L"EnableBIDI", 1), S_OK);
    faults.failCall("IWbemServices::PutInstance", static_cast<DWORD>(WBEM_E_ACCESS_DENIED), 1);
    EXPECT_EQ(services_->PutInstance(object, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr), WBEM_E_ACCESS_DENIED);
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL);
    faults.failCall("SysAllocString", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(object->Get(L"Name", 0, &value, nullptr, nullptr), WBEM_E_OUT_OF_MEMORY);
    object->Release();
    enumerator->Release();
}

}  // namespace
