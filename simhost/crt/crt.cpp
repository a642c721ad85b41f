#include "simhost/crt/crt.h"

namespace {

wchar_t foldAscii(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

}  // namespace

int _wcsicmp(const wchar_t* left, const wchar_t* right) {
    for (;; ++left, ++right) {
        wchar_t l = foldAscii(*left);
        wchar_t r = foldAscii(*right);
        if (l != r || l == L'\0') return static_cast<int>(l) - static_cast<int>(r);
    }
}
