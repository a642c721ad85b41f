// The state of setupapi's INF files: the open handles and the cache of parsed
// files. Windows keeps a precompiled form of each INF file it has read; the
// host keeps each parse, keyed by the file's native path and valid while the
// file's modification time and size, the ANSI code page and the language
// stay as they were.
#pragma once

#include "simhost/setupapi/inf_files.h"
#include "simhost/setupapi/inf_parser.h"
#include "simhost/setupapi/setupapi.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace simhost {
namespace setupapi {

// What a parse depends on besides the file's name.
struct InfFileStamp {
    long long modifiedNs = 0;  // modification time, nanoseconds since 1970
    long long size = 0;
    UINT codePage = 0;
    WORD language = 0;

    bool operator==(const InfFileStamp& other) const {
        return modifiedNs == other.modifiedNs && size == other.size && codePage == other.codePage &&
               language == other.language;
    }
};

struct CachedInf {
    InfFileStamp stamp;
    std::shared_ptr<const InfFile> file;
};

struct InfState {
    std::mutex mutex;
    std::map<std::string, CachedInf> cache;
    std::unordered_map<HINF, std::shared_ptr<const InfFile>> open;
    InfCacheCounts counts;
};

// The parsed INF file at a Windows path, from the cache when it has not
// changed. Errors: ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
// ERROR_ACCESS_DENIED for a directory, or a syntax error with its line.
InfParse loadInfFile(InfState& state, const std::wstring& windowsPath);

// The parsed file behind an HINF SetupOpenInfFileW gave; null for a closed
// or unknown handle.
std::shared_ptr<const InfFile> openedInfFile(HINF inf);

// Whether the file's [Version] Signature is "$Windows NT$" or "$Chicago$".
bool isWin4Inf(const InfFile& file);
// The file's class: its Class value, else the name of the class of its
// ClassGUID when the host knows that class.
std::wstring infClassOf(const InfFile& file);

}  // namespace setupapi
}  // namespace simhost
