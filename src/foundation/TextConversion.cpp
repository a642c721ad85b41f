#include "foundation/TextConversion.h"

#include "platform/win32.h"

std::wstring utf8ToWide(const std::string& utf8) {
    if (utf8.empty()) return {};
    int length = static_cast<int>(utf8.size());
    int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    if (needed <= 0) return {};
    std::wstring wide(static_cast<size_t>(needed), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, &wide[0], needed);
    return wide;
}

std::string wideToUtf8(const std::wstring& wide) {
    if (wide.empty()) return {};
    int length = static_cast<int>(wide.size());
    int needed = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return {};
    std::string utf8(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, &utf8[0], needed, nullptr, nullptr);
    return utf8;
}
