// Reading INF files from the host's drives through the cache of parses.
#include "simhost/core/host.h"
#include "simhost/kernel32/host_settings.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/setupapi/inf_state.h"

#include <fstream>
#include <iterator>
#include <sys/stat.h>

namespace simhost {
namespace setupapi {
namespace {

// Why a native path names no file: its directory missing is a missing path.
DWORD absenceError(const std::string& native) {
    struct stat info;
    std::string parent = native.substr(0, native.find_last_of('/'));
    bool parentIsDirectory = ::stat(parent.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    return parentIsDirectory ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

std::string readBytes(const std::string& native) {
    std::ifstream in(native, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

InfParse loadInfFile(InfState& state, const std::wstring& windowsPath) {
    std::string native = Host::get().toNativePath(windowsPath);
    if (native.empty()) return {nullptr, ERROR_PATH_NOT_FOUND, 0};
    struct stat info;
    if (::stat(native.c_str(), &info) != 0) return {nullptr, absenceError(native), 0};
    if (S_ISDIR(info.st_mode)) return {nullptr, ERROR_ACCESS_DENIED, 0};
    long long modifiedNs = static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
    InfFileStamp stamp{modifiedNs, static_cast<long long>(info.st_size), GetACP(), kernel32::systemLanguage()};
    auto cached = state.cache.find(native);
    if (cached != state.cache.end() && cached->second.stamp == stamp) {
        ++state.counts.hits;
        return {cached->second.file, ERROR_SUCCESS, 0};
    }
    ++state.counts.parses;
    InfParse parse = parseInf(readBytes(native), stamp.language);
    if (parse.file) state.cache[native] = {stamp, parse.file};
    return parse;
}

}  // namespace setupapi
}  // namespace simhost
