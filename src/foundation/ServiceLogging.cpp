#include "foundation/ServiceLogging.h"

#include "foundation/StaticLogger.h"

void applyServiceLogSettings() {
    for (uint32_t channel : {kLogNormal, kLogError}) {
        StaticLogger::setFileThreshold(channel, 2);
        StaticLogger::setEventThreshold(channel, 5);
    }
    StaticLogger::setShowThreadId(true);
    StaticLogger::setShowFunction(true);
    StaticLogger::setDisplayName(L"Vexor Printing Service");
}
