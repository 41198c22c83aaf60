// The last-word records of all processes.
#pragma once

namespace zemash {

// Prints them, one a line, and with `follow` the new ones until a signal ends the process. The exit code.
int showRecords(bool json, bool follow);

} // namespace zemash
