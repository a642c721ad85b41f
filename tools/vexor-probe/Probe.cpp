#include "Probe.h"

#include "foundation/TextConversion.h"

#include <cstdio>

namespace probe {
namespace {

// No call sets this value: an error the probe reads back as it was set
// means the call left the last error alone.
constexpr DWORD kUntouched = 0x2000F00D;

constexpr DWORD kNullBufferSize = 64;

std::string sizeWord(DWORD size) { return size == 0 ? "0" : "positive"; }

std::string sameOrOther(DWORD size, DWORD expected) { return size == expected ? "same" : "other"; }

}  // namespace

void observe(const std::string& topic, const std::string& text) {
    std::printf("%s: %s\n", topic.c_str(), text.c_str());
    std::fflush(stdout);
}

void primeLastError() { SetLastError(kUntouched); }

std::string lastErrorText() {
    DWORD error = GetLastError();
    return error == kUntouched ? "lastError=unchanged" : "lastError=" + number(error);
}

std::string outcome(bool succeeded) { return std::string(succeeded ? "TRUE " : "FALSE ") + lastErrorText(); }

std::string number(unsigned long value) { return std::to_string(value); }

std::string hresult(HRESULT value) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08X", static_cast<unsigned>(value));
    return buffer;
}

std::string text(const wchar_t* wide) { return wide ? text(std::wstring(wide)) : "null"; }

std::string text(const std::wstring& wide) {
    std::string escaped;
    for (char c : wideToUtf8(wide)) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (c == '\r') {
            escaped += "\\r";
        } else if (c == '\n') {
            escaped += "\\n";
        } else if (c == '\\') {
            escaped += "\\\\";
        } else if (byte < 0x20 || byte == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02X", byte);
            escaped += code;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string field(const wchar_t* wide) {
    if (!wide) return "null";
    return *wide ? "\"" + text(wide) + "\"" : "empty";
}

std::string presence(const wchar_t* wide) {
    if (!wide) return "null";
    return *wide ? "set" : "empty";
}

Block probeSizeProtocol(const std::string& topic, const SizedCall& call, bool withNullBuffer) {
    Block block;
    DWORD needed = 0, count = 0;
    primeLastError();
    BOOL ok = call(nullptr, 0, &needed, &count);
    observe(topic + " size-query", outcome(ok) + " needed=" + sizeWord(needed) + " count=" + number(count));
    const DWORD size = needed;

    DWORD otherNeeded = 0, otherCount = 0;
    if (withNullBuffer) {
        primeLastError();
        ok = call(nullptr, kNullBufferSize, &otherNeeded, &otherCount);
        observe(topic + " null-buffer-with-size", outcome(ok));
    }

    std::vector<BYTE> bytes(size + 1);
    if (size > 0) {
        otherNeeded = 0;
        primeLastError();
        ok = call(bytes.data(), size - 1, &otherNeeded, &otherCount);
        observe(topic + " short-buffer", outcome(ok) + " needed=" + sameOrOther(otherNeeded, size));
    }

    needed = 0;
    count = 0;
    primeLastError();
    ok = call(bytes.data(), size, &needed, &count);
    observe(topic + " fetch", outcome(ok) + " needed=" + sameOrOther(needed, size) + " count=" + number(count));
    if (ok) {
        block.fetched = true;
        block.bytes = std::move(bytes);
        block.count = count;
        block.used = size;
    }
    return block;
}

}  // namespace probe
