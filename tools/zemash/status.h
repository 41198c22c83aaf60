// The service at a glance.
#pragma once

namespace zemash {

// Prints processes, roles, tables, blocks and records; as JSON one object. The exit code.
int showStatus(bool json);

} // namespace zemash
