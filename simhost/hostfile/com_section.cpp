// The state file's "comObjects": the COM objects a process made and did not
// release, each with its interface, what it stands for and its count.
#include "simhost/core/text.h"
#include "simhost/hostfile/host_sections.h"
#include "simhost/ole32/com_objects.h"

namespace simhost {

Json::Value describeComObjects() {
    Json::Value list(Json::arrayValue);
    for (const ole32::LiveObject& object : ole32::liveObjects()) {
        Json::Value entry;
        entry["interface"] = object.interfaceName;
        entry["object"] = narrow(object.description);
        entry["references"] = object.references;
        list.append(entry);
    }
    return list;
}

}  // namespace simhost
