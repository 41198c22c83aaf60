// The machine's network devices, through the library's own functions.
#pragma once

namespace zemash {

// Prints one device a line; the exit status.
int showDevices(bool json);

} // namespace zemash
