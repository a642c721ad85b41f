// What the check prints: for people, the driver, the step that decided and
// how, and the trail of the selection's decisions; for programs, the reply
// record alone.
#pragma once

#include "SelectionRun.h"

#include <ostream>
#include <string>

namespace driver_check {

// The step of the selection that decided, as "step 5, pass 2: checksummed
// make-and-model ids", told from the reply's detail record.
std::string decidingStep(const SelectionOutcome& outcome);

void printReport(const SelectionOutcome& outcome, bool verbose, std::ostream& out);

// The reply record as compact JSON, as the service writes replies.
void printReplyRecord(const SelectionOutcome& outcome, std::ostream& out);

}  // namespace driver_check
