// The few functions of the Windows C runtime that the service uses and the
// C library of this platform lacks.
#pragma once

// Compares ignoring case as the runtime's "C" locale does: only the letters
// A to Z and a to z are folded. Negative, zero or positive, like wcscmp.
int _wcsicmp(const wchar_t* left, const wchar_t* right);
