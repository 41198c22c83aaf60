// The shared-memory blocks that exist.
#pragma once

namespace zemash {

// Prints them, the oldest first, one a line; with `removeOrphans` only those whose maker is gone, and removes
// them. The exit code.
int showBlocks(bool json, bool removeOrphans);

} // namespace zemash
