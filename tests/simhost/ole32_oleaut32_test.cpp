// The COM runtime and automation types of the simulated host: apartments,
// the process's one security initialisation, object creation and reference
// counts, proxy blankets, BSTRs and VARIANTs, and their faults.
#include "simhost/core/host.h"
#include "simhost/kernel32/memory.h"
#include "simhost/ole32/com_objects.h"
#include "simhost/wbem/wbem.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

using simhost::kernel32::Allocator;
using simhost::kernel32::badFreeCount;
using simhost::kernel32::liveBlockCount;
using simhost::ole32::initializationCount;
using simhost::ole32::liveObjects;

namespace {

class Com : public ::testing::Test {
protected:
    void SetUp() override { simhost::Host::get().reset(); }
    void TearDown() override {
        while (initializationCount() > 0) CoUninitialize();
        EXPECT_EQ(simhost::kernel32::releaseAllBlocks(), 0u);
        simhost::Host::get().reset();
    }

    static HRESULT initializeSecurity(DWORD level = RPC_C_AUTHN_LEVEL_DEFAULT) {
        return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, level, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                                    EOAC_NONE, nullptr);
    }
    static IWbemLocator* createLocator() {
        IWbemLocator* locator = nullptr;
        EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                   reinterpret_cast<LPVOID*>(&locator)),
                  S_OK);
        return locator;
    }
};

// ---- Apartments ----

TEST_F(Com, EachSuccessfulInitializationOfAThreadIsCountedAndUndoneOnce) {
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    EXPECT_EQ(initializationCount(), 2);
    int elsewhere = -1;
    std::thread([&] { elsewhere = initializationCount(); }).join();
    EXPECT_EQ(elsewhere, 0) << "apartments belong to threads";
    CoUninitialize();
    EXPECT_EQ(initializationCount(), 1);
    CoUninitialize();
    CoUninitialize();  // one too many does nothing
    EXPECT_EQ(initializationCount(), 0);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
}

TEST_F(Com, AThreadKeepsItsConcurrencyModel) {
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    EXPECT_EQ(initializationCount(), 1);
    int reserved = 0;
    EXPECT_EQ(CoInitializeEx(&reserved, COINIT_APARTMENTTHREADED), E_INVALIDARG);
    EXPECT_EQ(CoInitializeEx(nullptr, 0x100), E_INVALIDARG);
}

TEST_F(Com, AFailingInitializationAnswersItsErrorAndCountsNothing) {
    simhost::Host::get().faults().failCall("CoInitializeEx", static_cast<DWORD>(E_OUTOFMEMORY), 1);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), E_OUTOFMEMORY);
    EXPECT_EQ(initializationCount(), 0);
    simhost::Host::get().faults().failCall("CoInitializeEx", ERROR_ACCESS_DENIED, 1);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
}

// ---- Process security ----

TEST_F(Com, OnlyTheFirstSecurityInitializationOfAProcessSucceeds) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_FALSE(simhost::ole32::securityInitialized());
    EXPECT_EQ(initializeSecurity(), S_OK);
    EXPECT_TRUE(simhost::ole32::securityInitialized());
    EXPECT_EQ(simhost::ole32::processSecurity().impersonationLevel, RPC_C_IMP_LEVEL_IMPERSONATE);
    EXPECT_EQ(initializeSecurity(RPC_C_AUTHN_LEVEL_CALL), RPC_E_TOO_LATE);
    HRESULT onAnotherThread = S_OK;
    std::thread([&] { onAnotherThread = initializeSecurity(); }).join();
    EXPECT_EQ(onAnotherThread, RPC_E_TOO_LATE) << "the security is the process's";
    EXPECT_EQ(simhost::ole32::processSecurity().authenticationLevel, RPC_C_AUTHN_LEVEL_DEFAULT);
    simhost::Host::get().reset();
    EXPECT_EQ(initializeSecurity(), S_OK) << "a new machine is a new process";
}

TEST_F(Com, SecurityArgumentsOutOfRangeAreRefused) {
    SOLE_AUTHENTICATION_SERVICE service{};
    EXPECT_EQ(CoInitializeSecurity(nullptr, -1, &service, nullptr, 0, 3, nullptr, 0, nullptr), E_INVALIDARG);
    EXPECT_EQ(CoInitializeSecurity(nullptr, -2, nullptr, nullptr, 0, 3, nullptr, 0, nullptr), E_INVALIDARG);
    EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 7, 3, nullptr, 0, nullptr), E_INVALIDARG);
    EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, 0, 5, nullptr, 0, nullptr), E_INVALIDARG);
    EXPECT_FALSE(simhost::ole32::securityInitialized());
}

TEST_F(Com, AFailedSecurityInitializationLeavesTheNextOneFree) {
    simhost::Host::get().faults().failCall("CoInitializeSecurity", static_cast<DWORD>(E_OUTOFMEMORY), 1);
    EXPECT_EQ(initializeSecurity(), E_OUTOFMEMORY);
    EXPECT_EQ(initializeSecurity(), S_OK);
}

// ---- Objects ----

TEST_F(Com, CreatingTheLocatorNeedsCom) {
    IWbemLocator* locator = reinterpret_cast<IWbemLocator*>(this);
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                               reinterpret_cast<LPVOID*>(&locator)),
              CO_E_NOTINITIALIZED);
    EXPECT_EQ(locator, nullptr);
}

TEST_F(Com, TheLocatorIsAnInProcessClassWithOneInterface) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    void* object = this;
    const CLSID other = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(CoCreateInstance(other, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, &object), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_LOCAL_SERVER, IID_IWbemLocator, &object),
              REGDB_E_CLASSNOTREG);
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, reinterpret_cast<LPUNKNOWN>(this), CLSCTX_INPROC_SERVER,
                               IID_IUnknown, &object),
              CLASS_E_NOAGGREGATION);
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_ALL, IID_IWbemServices, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_TRUE(liveObjects().empty()) << "the object made for a refused interface is gone";
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, nullptr), E_POINTER);
}

TEST_F(Com, ReferencesAreCountedAndTheLastReleaseDestroys) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    IWbemLocator* locator = createLocator();
    ASSERT_NE(locator, nullptr);
    ASSERT_EQ(liveObjects().size(), 1u);
    EXPECT_EQ(liveObjects()[0].interfaceName, "IWbemLocator");
    EXPECT_EQ(liveObjects()[0].references, 1u);
    IUnknown* unknown = nullptr;
    EXPECT_EQ(locator->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    EXPECT_EQ(static_cast<void*>(unknown), static_cast<void*>(locator));
    EXPECT_EQ(locator->AddRef(), 3u);
    EXPECT_EQ(liveObjects()[0].references, 3u);
    void* services = this;
    EXPECT_EQ(locator->QueryInterface(IID_IWbemServices, &services), E_NOINTERFACE);
    EXPECT_EQ(services, nullptr);
    EXPECT_EQ(unknown->Release(), 2u);
    EXPECT_EQ(locator->Release(), 1u);
    EXPECT_EQ(locator->Release(), 0u);
    EXPECT_TRUE(liveObjects().empty());
}

TEST_F(Com, AnObjectNobodyReleasesStaysCountedUntilTheMachineIsReset) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    createLocator();
    createLocator();
    EXPECT_EQ(liveObjects().size(), 2u);
    simhost::Host::get().reset();
    EXPECT_TRUE(liveObjects().empty());
}

TEST_F(Com, AFailingCreationAnswersTheInjectedResult) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    simhost::Host::get().faults().failCall("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG), 1);
    void* object = this;
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, &object),
              REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);
    EXPECT_TRUE(liveObjects().empty());
}

// ---- Proxy blankets ----

TEST_F(Com, OnlyAProxyTakesABlanket) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    IWbemLocator* locator = createLocator();
    EXPECT_EQ(CoSetProxyBlanket(locator, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE),
              E_NOINTERFACE);
    IWbemServices* services = nullptr;
    BSTR cimv2 = SysAllocString(L"ROOT\\CIMV2");
    ASSERT_EQ(locator->ConnectServer(cimv2, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services), S_OK);
    SysFreeString(cimv2);
    EXPECT_EQ(CoSetProxyBlanket(services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE),
              S_OK);
    simhost::ole32::SecurityLevels blanket = simhost::ole32::lastProxyBlanket();
    EXPECT_EQ(blanket.authenticationService, RPC_C_AUTHN_WINNT);
    EXPECT_EQ(blanket.authenticationLevel, RPC_C_AUTHN_LEVEL_CALL);
    EXPECT_EQ(blanket.impersonationLevel, RPC_C_IMP_LEVEL_IMPERSONATE);
    EXPECT_EQ(CoSetProxyBlanket(nullptr, RPC_C_AUTHN_WINNT, 0, nullptr, 3, 3, nullptr, 0), E_INVALIDARG);
    EXPECT_EQ(CoSetProxyBlanket(services, RPC_C_AUTHN_WINNT, 0, nullptr, 9, 3, nullptr, 0), E_INVALIDARG);
    simhost::Host::get().faults().failCall("CoSetProxyBlanket", static_cast<DWORD>(E_OUTOFMEMORY), 1);
    EXPECT_EQ(CoSetProxyBlanket(services, RPC_C_AUTHN_WINNT, 0, nullptr, 3, 3, nullptr, 0), E_OUTOFMEMORY);
    services->Release();
    locator->Release();
}

// ---- BSTRs ----

TEST_F(Com, AStringCarriesItsLengthAndIsFreedOnce) {
    BSTR text = SysAllocString(L"EnableBIDI");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::wstring(text), L"EnableBIDI");
    EXPECT_EQ(SysStringLen(text), 10u);
    EXPECT_EQ(reinterpret_cast<const DWORD*>(text)[-1], 10u * sizeof(OLECHAR)) << "bytes, before the characters";
    EXPECT_EQ(liveBlockCount(Allocator::SysString), 1u);
    SysFreeString(text);
    EXPECT_EQ(liveBlockCount(Allocator::SysString), 0u);
    SysFreeString(text);
    EXPECT_EQ(badFreeCount(Allocator::SysString), 1u);
    SysFreeString(nullptr);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
}

TEST_F(Com, AFailingAllocationAnswersNull) {
    simhost::Host::get().faults().failCall("SysAllocString", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(SysAllocString(L"x"), nullptr);
    EXPECT_EQ(liveBlockCount(Allocator::SysString), 0u);
}

// ---- VARIANTs ----

TEST_F(Com, ClearingFreesTheTextAndLeavesEmpty) {
    VARIANT value;
    VariantInit(&value);
    EXPECT_EQ(value.vt, VT_EMPTY);
    value.vt = VT_BSTR;
    value.bstrVal = SysAllocString(L"Local Desk");
    EXPECT_EQ(VariantClear(&value), S_OK);
    EXPECT_EQ(value.vt, VT_EMPTY);
    EXPECT_EQ(liveBlockCount(Allocator::SysString), 0u);
    value.vt = 0x2000 | VT_I4;  // an array: not modelled
    EXPECT_EQ(VariantClear(&value), DISP_E_BADVARTYPE);
    EXPECT_EQ(value.vt, 0x2000 | VT_I4);
    EXPECT_EQ(VariantClear(nullptr), E_INVALIDARG);
}

TEST_F(Com, ABooleanBecomesANumberAsTextUnlessAlphabeticIsAsked) {
    VARIANT value{};
    value.vt = VT_BOOL;
    value.boolVal = VARIANT_TRUE;
    ASSERT_EQ(VariantChangeType(&value, &value, 0, VT_BSTR), S_OK);
    EXPECT_EQ(value.vt, VT_BSTR);
    EXPECT_EQ(std::wstring(value.bstrVal), L"-1");
    VariantClear(&value);
    value.vt = VT_BOOL;
    value.boolVal = VARIANT_FALSE;
    ASSERT_EQ(VariantChangeType(&value, &value, 0, VT_BSTR), S_OK);
    EXPECT_EQ(std::wstring(value.bstrVal), L"0");
    VariantClear(&value);
    value.vt = VT_BOOL;
    value.boolVal = VARIANT_TRUE;
    ASSERT_EQ(VariantChangeType(&value, &value, VARIANT_ALPHABOOL, VT_BSTR), S_OK);
    EXPECT_EQ(std::wstring(value.bstrVal), L"True");
    VariantClear(&value);
}

TEST_F(Com, NumbersTextAndEmptyConvertToText) {
    VARIANT number{};
    number.vt = VT_I4;
    number.lVal = -4112;
    VARIANT text{};
    ASSERT_EQ(VariantChangeType(&text, &number, 0, VT_BSTR), S_OK);
    EXPECT_EQ(std::wstring(text.bstrVal), L"-4112");
    EXPECT_EQ(number.vt, VT_I4) << "a separate source is left as it was";
    ASSERT_EQ(VariantChangeType(&text, &text, 0, VT_BSTR), S_OK);
    EXPECT_EQ(std::wstring(text.bstrVal), L"-4112");
    EXPECT_EQ(liveBlockCount(Allocator::SysString), 1u) << "the text converted in place was replaced, not kept";
    VariantClear(&text);
    VARIANT empty{};
    ASSERT_EQ(VariantChangeType(&empty, &empty, 0, VT_BSTR), S_OK);
    EXPECT_EQ(std::wstring(empty.bstrVal), L"");
    VariantClear(&empty);
}

TEST_F(Com, WhatCannotBecomeTextIsAMismatchAndChangesNothing) {
    VARIANT value{};
    value.vt = VT_NULL;
    EXPECT_EQ(VariantChangeType(&value, &value, 0, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(value.vt, VT_NULL);
    value.vt = VT_R8;
    value.dblVal = 1.5;
    EXPECT_EQ(VariantChangeType(&value, &value, 0, VT_BSTR), DISP_E_TYPEMISMATCH);
    value.vt = VT_I4;
    EXPECT_EQ(VariantChangeType(&value, &value, 0, VT_BOOL), DISP_E_TYPEMISMATCH) << "only text is a target";
    value.vt = 99;
    EXPECT_EQ(VariantChangeType(&value, &value, 0, VT_BSTR), DISP_E_BADVARTYPE);
    EXPECT_EQ(VariantChangeType(nullptr, &value, 0, VT_BSTR), E_INVALIDARG);
    simhost::Host::get().faults().failCall("VariantChangeType", static_cast<DWORD>(DISP_E_TYPEMISMATCH), 1);
    value.vt = VT_I4;
    EXPECT_EQ(VariantChangeType(&value, &value, 0, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(value.vt, VT_I4);
}

}  // namespace
