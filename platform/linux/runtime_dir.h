// The runtime directory: where the processes of the system meet.
//
//   bus/<pid>-<nonce>                       the listening socket of a process
//   roles/<role>.<stamp>.<pid>-<nonce>      one empty file for each role that a process holds
//   records/<program>.<pid>.<nonce>         the last-word records of a process
//   edition                                 a file that grows by a byte after each change of roles/
//   features                                features that are switched on, a name a line; the operator's
//   lock                                    held while a role that only one process may hold is claimed
//
// The directory and all in it belong to one user and are closed to others; still, names are parsed as
// strictly as if anyone could write there.
#pragma once

#include "platform/linux/vec.h"
#include "qx/base.h"

#include <array>

namespace qx {

// A process on the bus. The nonce tells it from an earlier process with its pid.
struct PeerId {
    uint32_t pid;
    uint32_t nonce;
    bool operator==(const PeerId &) const = default;
};

enum class RoleKind : uint32_t { rpc, event, terminal, kernel };

struct Role {
    RoleKind kind;
    uint32_t number;
    bool operator==(const Role &) const = default;
};

// One process's hold on a role. The stamp orders the holders of a role by the time of their claim.
struct RoleClaim {
    Role role;
    uint64_t stamp;
    PeerId holder;
};

// Counts the changes of roles/ that this process can know of. Two equal ones that are known mean: no change
// between.
struct Edition {
    bool known;
    uint64_t changes;
    bool operator==(const Edition &) const = default;
};

using NameText = std::array<char, 64>;
using PathText = std::array<char, 96>;

// The directory's descriptor, opened and checked on first use; -1 when it is missing, not ours, or open to
// others.
int runtimeDirFd();
void forgetRuntimeDir();

uint64_t monotonicNs();
uint32_t randomNonce();

// Names below the directory.
NameText socketName(PeerId id);
NameText claimName(const RoleClaim &claim);

// The address of a socket below the directory, short however long the directory's own path is.
bool socketAddress(const NameText &name, PathText &out);

// What the file says now; not known when it is gone.
Edition readEdition();

bool writeClaim(const RoleClaim &claim);
void removeClaim(const RoleClaim &claim);

// Lists every claim, sorted by role and stamp. False when there is no directory or no memory.
bool listClaims(Vec<RoleClaim> &out);

// Removes what a dead process left on the bus.
void removeRemains(PeerId id);

// Held while a claim for an exclusive role is looked into; waits a bounded time for a process that holds it.
class RegistryLock {
public:
    explicit RegistryLock(uint32_t timeoutMs);
    ~RegistryLock();
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

} // namespace qx
