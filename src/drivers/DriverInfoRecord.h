// The driver catalogue's record: one driver entry of a staged INF file, and
// the two indexes the service keeps of them.
#pragma once

#include <map>
#include <string>
#include <vector>

struct DriverInfoRecord {
    std::wstring infFile;      // full path of the INF file
    std::wstring sectionName;  // install section; kept, not used further
    std::wstring driverName;   // the name the spooler will know the driver by
    std::wstring reserved;     // always empty
    std::vector<std::wstring> hardwareIds;  // the model line's ids, first id first
};

// Normalised driver name to record; owns the records.
typedef std::multimap<std::wstring, DriverInfoRecord*> DriverInfoMap;
// Lower-case hardware id without its bus part to record.
typedef std::multimap<std::wstring, DriverInfoRecord*> DriverHwIdMap;
