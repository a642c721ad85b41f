// The compiler's COM support of the simulated host: the error that its
// string and interface helpers raise. As on Windows, it is not derived
// from std::exception.
#pragma once

#include "simhost/wintypes.h"

class _com_error {
public:
    explicit _com_error(HRESULT result) noexcept : result_(result) {}
    HRESULT Error() const noexcept { return result_; }

private:
    HRESULT result_;
};

// Raises the failure as a _com_error, as the support library does for a
// helper that fails (a string that cannot be allocated: E_OUTOFMEMORY).
[[noreturn]] inline void __stdcall _com_issue_error(HRESULT result) { throw _com_error(result); }
