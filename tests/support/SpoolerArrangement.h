// Arranging the simulated spooler for a test: the driver most tests use, a
// raw TCP/IP port at a plugin's listener, and printers on them.
#pragma once

#include "platform/win32.h"

#include <string>

namespace testsupport {

constexpr const wchar_t* kTestDriver = L"Acme LaserBox 2000";

void addTestDriver();
// A TCP/IP port that points at the address (a plugin's, by default) and the
// given port number, RAW unless another protocol is given.
void addRawTcpPort(const std::wstring& name, DWORD portNumber = 9101, const std::wstring& address = L"127.0.1.20",
                   DWORD protocol = PROTOCOL_RAWTCP_TYPE);
// A printer of the test driver on a port; with an SDDL text, that
// descriptor, else the spooler's default one.
void addTestPrinter(const std::wstring& name, const std::wstring& portName, const std::wstring& sddl = L"");

}  // namespace testsupport
