// How the service's driver selection decided, told from the `detail` record
// of a reply, for the tools that show it to people.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

namespace vexor_tools {

// The step that decided, as "step 5, pass 2: checksummed make-and-model
// ids". Steps 7 and 9 write the same record: `seriesNamesTried` (known from
// the service's log) tells them apart; without it both are named.
std::string decidingStep(const Json::Value& detail, bool driverChosen, std::optional<bool> seriesNamesTried);

// The id that matched, with whether its bus part was compared; "" when the
// record names none.
std::string matchedIdText(const Json::Value& detail);

}  // namespace vexor_tools
