// The logging configuration of the service: everything from level 2 goes to
// the file on both channels, levels from 5 to the event sink, each line with
// thread id and function name, files named after the display name.
#pragma once

void applyServiceLogSettings();
