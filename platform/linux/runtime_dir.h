// The runtime directory: where the processes of the system meet.
//
//   bus/<pid>-<nonce>                       the listening socket of a process
//   roles/<role>.<stamp>.<pid>-<nonce>      one empty file for each role that a process holds
//   records/<program>.<pid>.<nonce>         the last-word records of a process
//   edition                                 a counter, mapped by every process, of the changes of roles/
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

enum class RoleKind : uint32_t { rpc, event, terminal, kernel, syncOwner, module, monitor };

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

using RoleName = std::array<char, 24>;
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
NameText draftSocketName(PeerId id); // until it listens
NameText claimName(const RoleClaim &claim);
RoleName roleName(Role role);

// The address of a socket below the directory, short however long the directory's own path is.
bool socketAddress(const NameText &name, PathText &out);

// How often roles/ has changed, while there is a directory: two equal readings mean no change between them.
// Reading costs no system call.
uint32_t readEdition();

bool writeClaim(const RoleClaim &claim);
void removeClaim(const RoleClaim &claim);

// Lists every claim, sorted by role and stamp. False when there is no directory or no memory.
bool listClaims(Vec<RoleClaim> &out);

// Lists every process that has a socket, or left one. False when there is no directory or no memory.
bool listSockets(Vec<PeerId> &out);

// Whether the directory is still the one that stands at its path; looked at once a second. When it is not, it
// was removed and made anew, and this process and the others no longer meet.
bool runtimeDirStands();

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
