// The program's entry: one optional switch installs or removes the service;
// otherwise the process is handed to the service control dispatcher.
#pragma once

#include "platform/win32.h"

// argv[0] is the program; argv[1], if any, may be a switch. Always 0.
int serviceEntry(int argc, wchar_t** argv);

// Register and unregister the service with the control manager, printing
// what happened to standard output.
void install();
void remove();
