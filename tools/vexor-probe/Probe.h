// vexor-probe: calls the Windows functions the service uses, with the
// arguments it uses and with the edge cases around them, and prints what
// each answers, one observation a line. The same source builds for Windows
// and for the simulated host, so the two outputs can be compared line by
// line. Nothing a machine legitimately has of its own is printed: no
// handles, ids, ports picked by the system, account SIDs or byte counts
// that depend on the width of a wide character.
#pragma once

#include "platform/win32.h"

#include <functional>
#include <string>
#include <vector>

namespace probe {

// What the probe arranges and names, from its command line.
struct Setup {
    std::wstring infPath;      // an INF file on the machine's drive
    std::wstring driverName;   // an installed driver to make a printer with
    std::wstring portName;     // a local port for that printer
    std::wstring printerName;  // the printer the probe makes and deletes
};

// One observation: "topic: text".
void observe(const std::string& topic, const std::string& text);

// A value the thread's last error is set to before a call, so that a call
// that leaves it alone shows as "unchanged".
void primeLastError();

// "TRUE" or "FALSE" and the last error after a call primed with
// primeLastError().
std::string outcome(bool succeeded);
std::string lastErrorText();

std::string number(unsigned long value);
std::string hresult(HRESULT value);
// Wide text as UTF-8, with control characters escaped ("\r", "\n", "\x01").
std::string text(const wchar_t* wide);
std::string text(const std::wstring& wide);
// "null", "empty" or the text.
std::string field(const wchar_t* wide);
// "null", "empty" or "set": for members whose text is the machine's own.
std::string presence(const wchar_t* wide);

// One call of a two-call size protocol: the buffer, its size, and where the
// call writes the size it needs and the count of records (a call without a
// count leaves it alone).
using SizedCall = std::function<BOOL(BYTE* buffer, DWORD size, DWORD* needed, DWORD* count)>;

// The fetched block with the count of its records and the bytes used.
struct Block {
    bool fetched = false;
    std::vector<BYTE> bytes;
    DWORD count = 0;
    DWORD used = 0;
};

// Runs the protocol's cases under `topic`: the size query (a null buffer of
// size 0), a null buffer with a size (unless left out), a buffer one byte
// short, and the fetch with the size asked for. Sizes are told as "0",
// "positive", "same" or "other", never in bytes.
Block probeSizeProtocol(const std::string& topic, const SizedCall& call, bool withNullBuffer = true);

// Whether the records start the block and every string they point to lies
// behind them inside the bytes used: "records-then-strings" or "other".
template <typename Record>
std::string layoutOf(const Block& block, const std::vector<LPWSTR Record::*>& strings) {
    const BYTE* records = block.bytes.data();
    const BYTE* afterRecords = records + block.count * sizeof(Record);
    const BYTE* end = records + block.used;
    for (DWORD i = 0; i < block.count; ++i) {
        const Record& record = reinterpret_cast<const Record*>(records)[i];
        for (LPWSTR Record::*member : strings) {
            const BYTE* at = reinterpret_cast<const BYTE*>(record.*member);
            if (at && (at < afterRecords || at >= end)) return "other";
        }
    }
    return "records-then-strings";
}

template <typename Record>
const Record* recordsOf(const Block& block) {
    return reinterpret_cast<const Record*>(block.bytes.data());
}

// The spooler's enumerations and monitors, then the probe's own printer
// made and read; probePrinterRemoval opens it with the access right 1 and
// deletes it.
void probeSpooler(const Setup& setup);
void probePrinterRemoval(const Setup& setup);
void probeSecurity();
void probeToken();
void probeCodePages();
void probeMessages();
void probeRegistry();
void probeInf(const Setup& setup);
void probeManagement(const Setup& setup);
void probeSockets();

}  // namespace probe
