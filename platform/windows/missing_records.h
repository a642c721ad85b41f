// Published Windows records that MinGW-w64's headers do not declare. Each
// stands for the SDK record of the same name, with the published layout and
// size. A MinGW that ships the SDK header is used as it is; the size checks
// below hold for either definition.
#pragma once

#if __has_include(<tcpxcv.h>)
#include <tcpxcv.h>
#else
#include "platform/tcpxcv_records.h"
#endif

// The port monitor reads these records as raw bytes in their published
// layout, so a record of another size would be misread.
static_assert(sizeof(PORT_DATA_1) == 964, "PORT_DATA_1 must have its published size");
static_assert(sizeof(DELETE_PORT_DATA_1) == 236, "DELETE_PORT_DATA_1 must have its published size");
static_assert(sizeof(CONFIG_INFO_DATA_1) == 132, "CONFIG_INFO_DATA_1 must have its published size");
