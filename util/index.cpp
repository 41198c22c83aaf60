#include "zema/index.h"

#include "common/record.h"
#include "qx/memory.h"

namespace {

constexpr const char *kFile = zema::baseName(__FILE__);

enum Type : uint32_t {
    kWan = 1,
    kOtherWan = 2,
    kBridge = 3,
    kTunnel = 4,
    kVlan = 11,
    kOtherVlan = 12,
    kTunnel6Rd = 13,
    kDmz = 15,
};

constexpr uint32_t pack(uint32_t type, uint32_t firstId, uint32_t secondId, uint32_t instance)
{
    return type << 28U | firstId << 20U | secondId << 12U | instance;
}
static_assert(pack(0, 1, 100, 1) == ZEMA_INDEX_SSHIF && pack(kOtherVlan, 1, 10, 1) == ZEMA_INDEX_TWAMP);

constexpr uint32_t typeOf(uint32_t index)
{
    return index >> 28U;
}

constexpr bool isWan(uint32_t index)
{
    return typeOf(index) == kWan || typeOf(index) == kOtherWan || index == ZEMA_INDEX_SSHIF;
}

constexpr bool isVlan(uint32_t index)
{
    return isWan(index) || typeOf(index) == kVlan || typeOf(index) == kOtherVlan;
}

constexpr uint32_t truth(bool holds)
{
    return holds ? 1 : 0;
}

// The low bits that the out value has room for.
template <typename Out>
void put(Out *out, uint32_t value)
{
    if (out != nullptr) {
        *out = static_cast<Out>(value);
    }
}

} // namespace

// ---- Interface indexes ----

void Index_MakeIndex(uint32_t ulType, uint32_t ulFirstId, uint32_t ulSecondId, uint32_t ulInstance,
                     uint32_t *pulIndex)
{
    put(pulIndex, pack(ulType, ulFirstId, ulSecondId, ulInstance));
}

void Index_GetPrototype(uint32_t ulIndex, uint32_t *pulType, uint8_t *pucFirstId, uint8_t *pucSecondId,
                        uint16_t *pusInstance)
{
    Index_Gettype(ulIndex, pulType);
    Index_GetId(ulIndex, pucFirstId, pucSecondId, pusInstance);
}

void Index_GetId(uint32_t ulIndex, uint8_t *pucFirstId, uint8_t *pucSecondId, uint16_t *pusInstance)
{
    put(pucFirstId, ulIndex >> 20U);
    put(pucSecondId, ulIndex >> 12U);
    put(pusInstance, ulIndex & 0xFFFU);
}

void Index_Gettype(uint32_t ulIndex, uint32_t *pulType)
{
    put(pulType, typeOf(ulIndex));
}

uint32_t Index_IsBrIndex(uint32_t ulIndex)
{
    return truth(typeOf(ulIndex) == kBridge);
}

uint32_t Index_IsTunnelIndex(uint32_t ulIndex)
{
    return truth(typeOf(ulIndex) == kTunnel);
}

uint32_t Index_IsTunnel6RDIndex(uint32_t ulIndex)
{
    return truth(typeOf(ulIndex) == kTunnel6Rd);
}

uint32_t Index_IsDMZIfIndex(uint32_t ulIndex)
{
    return truth(typeOf(ulIndex) == kDmz);
}

uint32_t Index_IsIndexTypeEqual(uint32_t ulIndex, uint32_t ulType)
{
    return truth(typeOf(ulIndex) == ulType);
}

uint32_t Index_IsSshifIndex(uint32_t ulIndex)
{
    return truth(ulIndex == ZEMA_INDEX_SSHIF);
}

uint32_t Index_IsTwampIndex(uint32_t ulIndex)
{
    return truth(ulIndex == ZEMA_INDEX_TWAMP);
}

uint32_t Index_IsWanIndex(uint32_t ulIndex)
{
    return truth(isWan(ulIndex));
}

uint32_t Index_IsVlanIfIndex(uint32_t ulIndex)
{
    return truth(isVlan(ulIndex));
}

int32_t Index_GetValidWanDevInst(int32_t lInstance)
{
    constexpr int32_t kFirst = 1;
    constexpr int32_t kLast = 15;

    return lInstance >= kFirst && lInstance <= kLast ? lInstance : kFirst;
}

// ---- TR-181 indexes ----

void TR181_Common_MakeIndex(uint32_t ulField1, uint32_t ulField2, uint32_t ulField3, uint32_t ulField4,
                            uint32_t *pulIndex)
{
    put(pulIndex, ulField1 << 24U | ulField2 << 16U | ulField3 << 8U | ulField4);
}

void TR181_Common_GetPrototype(uint32_t ulIndex, uint32_t *pulField1, uint8_t *pucField2, uint8_t *pucField3,
                               uint8_t *pucField4)
{
    put(pulField1, ulIndex >> 24U);
    put(pucField2, ulIndex >> 16U);
    put(pucField3, ulIndex >> 8U);
    put(pucField4, ulIndex);
}

uint32_t TR181_Common_BridgeIndexToPath(const uint32_t *pulIndex, char *pcPath, uint32_t ulSize)
{
    if (pulIndex == nullptr || pcPath == nullptr) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, 0, 0, 0, 0);
        return ZEMA_ERR;
    }
    uint8_t bridge = 0;
    TR181_Common_GetPrototype(*pulIndex, nullptr, &bridge, nullptr, nullptr);
    const int32_t written = snprintf_s(pcPath, ulSize, ulSize - 1, "Device.Bridging.Bridge.%d", bridge);
    if (written < 1) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, static_cast<uint32_t>(written), ulSize, 0, 0);
    }
    return ZEMA_OK;
}
