// Address texts and byte order. None of these needs WSAStartup.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/ws2_32/winsock.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

uint16_t swapToNetworkOrder16(uint16_t value) {
    const unsigned char bytes[2] = {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    uint16_t network;
    std::memcpy(&network, bytes, sizeof network);
    return network;
}

uint32_t swapToNetworkOrder32(uint32_t value) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
                                    static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    uint32_t network;
    std::memcpy(&network, bytes, sizeof network);
    return network;
}

bool endsAddress(char c) { return c == '\0' || std::isspace(static_cast<unsigned char>(c)); }

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// One part of a dotted address in C notation: 0x for hexadecimal, a leading
// 0 for octal, else decimal. Moves `text` past it; false if no number stands
// there or it does not fit in 32 bits.
bool parsePart(const char*& text, uint64_t& value) {
    int base = 10;
    bool anyDigit = false;
    if (*text == '0') {
        base = 8;
        anyDigit = true;
        ++text;
        if (*text == 'x' || *text == 'X') {
            base = 16;
            ++text;
        }
    }
    value = 0;
    for (int digit = digitValue(*text); digit >= 0 && digit < base; digit = digitValue(*++text)) {
        value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
        if (value > 0xffffffffu) return false;
        anyDigit = true;
    }
    return anyDigit;
}

// "a.b.c.d", "a.b.c", "a.b" or "a": every part but the last is one byte, the
// last fills the bytes that are left. Whitespace ends the address.
bool parseDottedAddress(const char* text, uint32_t& hostOrder) {
    uint64_t parts[4];
    size_t count = 0;
    while (!endsAddress(*text)) {
        if (count == 4 || !parsePart(text, parts[count++])) return false;
        if (endsAddress(*text)) break;
        if (*text != '.' || endsAddress(*++text)) return false;
    }
    uint64_t value = 0;
    for (size_t i = 0; i + 1 < count; ++i) {
        if (parts[i] > 0xff) return false;
        value |= parts[i] << (24 - 8 * i);
    }
    if (count > 0) {
        if (parts[count - 1] > (0xffffffffu >> (8 * (count - 1)))) return false;
        value |= parts[count - 1];
    }
    hostOrder = static_cast<uint32_t>(value);
    return true;
}

}  // namespace

u_short WSAAPI htons(u_short hostshort) { return swapToNetworkOrder16(hostshort); }

// Swapping to network order and back is the same operation.
u_short WSAAPI ntohs(u_short netshort) { return swapToNetworkOrder16(netshort); }

u_long WSAAPI htonl(u_long hostlong) { return swapToNetworkOrder32(static_cast<uint32_t>(hostlong)); }

u_long WSAAPI ntohl(u_long netlong) { return swapToNetworkOrder32(static_cast<uint32_t>(netlong)); }

// A null or empty text is INADDR_NONE; a text that starts with whitespace
// names no part and is 0, as Windows answers for " ".
unsigned long WSAAPI inet_addr(const char* cp) {
    if (DWORD injected = simhost::injectedFailure("inet_addr")) {
        SetLastError(injected);
        return INADDR_NONE;
    }
    uint32_t hostOrder = 0;
    if (!cp || !*cp || !parseDottedAddress(cp, hostOrder)) return INADDR_NONE;
    return swapToNetworkOrder32(hostOrder);
}

char* WSAAPI inet_ntoa(in_addr in) {
    if (DWORD injected = simhost::injectedFailure("inet_ntoa")) {
        SetLastError(injected);
        return nullptr;
    }
    thread_local char text[sizeof "255.255.255.255"];
    unsigned char bytes[4];
    std::memcpy(bytes, &in.S_un.S_addr, sizeof bytes);
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
    return text;
}
