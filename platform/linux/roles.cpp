// The roles that this process holds.
#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"

namespace qx {
namespace {

constexpr uint32_t kRegistryTimeoutMs = 2000;

constinit StaticVec<RoleClaim> gOwnClaims; // LockId::join

RoleClaim *findOwnClaim(Role role)
{
    RoleClaim *const claim = std::find_if(gOwnClaims.begin(), gOwnClaims.end(),
                                          [&](const RoleClaim &own) { return own.role == role; });
    return claim == gOwnClaims.end() ? nullptr : claim;
}

// QX_OK when no other live process holds the role; what dead ones left of it is removed.
uint32_t checkFree(Role role)
{
    Vec<RoleClaim> claims;
    if (!listClaims(claims)) {
        return QX_ERR_RUNTIME_DIR;
    }
    uint32_t result = QX_OK;
    for (const RoleClaim &other : claims) {
        if (other.role != role || isSelf(other.holder)) {
            continue;
        }
        if (listens(other.holder)) {
            result = QX_ERR_TAKEN;
        } else {
            removeRemains(other.holder);
        }
    }
    return result;
}

uint32_t claim(Role role)
{
    const RoleClaim made{.role = role, .stamp = monotonicNs(), .holder = selfId()};
    if (!writeClaim(made)) {
        return QX_ERR_RUNTIME_DIR;
    }
    if (!gOwnClaims.push(made)) {
        removeClaim(made);
        return QX_ERR_NO_MEMORY;
    }
    return QX_OK;
}

} // namespace

uint32_t claimRole(Role role, bool exclusive)
{
    const uint32_t joined = joinBus();
    const Lock lock(LockId::join);
    if (joined != QX_OK || findOwnClaim(role) != nullptr) {
        return joined;
    }
    if (!exclusive) {
        return claim(role);
    }
    const RegistryLock registry(kRegistryTimeoutMs);
    if (!registry) {
        return QX_ERR_TIMEOUT;
    }
    const uint32_t free = checkFree(role);
    return free != QX_OK ? free : claim(role);
}

void releaseRole(Role role)
{
    const Lock lock(LockId::join);
    RoleClaim *const claim = findOwnClaim(role);
    if (claim != nullptr) {
        removeClaim(*claim);
        gOwnClaims.removeAt(static_cast<uint32_t>(claim - gOwnClaims.begin()));
    }
}

void releaseAllRoles()
{
    for (const RoleClaim &claim : gOwnClaims) {
        removeClaim(claim);
    }
    forgetRoles();
}

void forgetRoles()
{
    gOwnClaims.clear();
}

} // namespace qx
