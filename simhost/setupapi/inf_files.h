// Test and host API of the INF files setupapi opens: the handles still open
// and the cache of parsed files.
#pragma once

#include <cstddef>

namespace simhost {
namespace setupapi {

// INF handles SetupOpenInfFileW gave that SetupCloseInfFile has not closed.
size_t openInfHandleCount();

// How often an opened file was parsed, and how often a parse kept from an
// earlier open was used instead because the file had not changed.
struct InfCacheCounts {
    size_t parses = 0;
    size_t hits = 0;
};
InfCacheCounts infCacheCounts();

}  // namespace setupapi
}  // namespace simhost
