/*
 * Interface indexes: 32 bits that name an interface of the component; and the indexes of the TR-181 data
 * model, a packing of their own.
 *
 * An interface index is not a kernel index of a network device. From the top it holds
 *
 *     type 4 bits | first identifier 8 | second identifier 8 | instance 12
 *
 * with the types 1 and 2 WAN, 3 bridge, 4 tunnel, 11 and 12 VLAN, 13 6RD tunnel, 15 DMZ, and two indexes with
 * a meaning as a whole. A TR-181 index holds four fields of 8 bits; a bridge's second field, bits 16 to 23,
 * is its number in the path.
 *
 * Every out pointer may be null: that value is left out. Predicates return 1 for true and 0 for false.
 * Nothing is kept: any thread, at once. Failures are recorded under index.cpp.
 */
#ifndef ZEMA_INDEX_H
#define ZEMA_INDEX_H

#include "zema/result.h"

QX_BEGIN_DECLS

/* The two indexes with a meaning of their own: type 0, identifiers 1 and 100, instance 1, which is a WAN and
 * a VLAN interface; and type 12, identifiers 1 and 10, instance 1. */
#define ZEMA_INDEX_SSHIF 0x00164001U
#define ZEMA_INDEX_TWAMP 0xC010A001U

/* ---- Interface indexes ---- */

/* Packs the four values into *pulIndex. None is masked: one wider than its field reaches into those above. */
ZEMA_API void Index_MakeIndex(uint32_t ulType, uint32_t ulFirstId, uint32_t ulSecondId, uint32_t ulInstance,
                              uint32_t *pulIndex);

/* Take an index apart: all fields, all but the type, the type alone. */
ZEMA_API void Index_GetPrototype(uint32_t ulIndex, uint32_t *pulType, uint8_t *pucFirstId,
                                 uint8_t *pucSecondId, uint16_t *pusInstance);
ZEMA_API void Index_GetId(uint32_t ulIndex, uint8_t *pucFirstId, uint8_t *pucSecondId, uint16_t *pusInstance);
ZEMA_API void Index_Gettype(uint32_t ulIndex, uint32_t *pulType);

/* Whether an index is of one type: bridge, tunnel, 6RD tunnel, DMZ, or the type given. */
ZEMA_API uint32_t Index_IsBrIndex(uint32_t ulIndex);
ZEMA_API uint32_t Index_IsTunnelIndex(uint32_t ulIndex);
ZEMA_API uint32_t Index_IsTunnel6RDIndex(uint32_t ulIndex);
ZEMA_API uint32_t Index_IsDMZIfIndex(uint32_t ulIndex);
ZEMA_API uint32_t Index_IsIndexTypeEqual(uint32_t ulIndex, uint32_t ulType);

/* Whether an index is ZEMA_INDEX_SSHIF; whether it is ZEMA_INDEX_TWAMP. */
ZEMA_API uint32_t Index_IsSshifIndex(uint32_t ulIndex);
ZEMA_API uint32_t Index_IsTwampIndex(uint32_t ulIndex);

/* Whether an index is of a WAN type; whether it is of a WAN or VLAN type. ZEMA_INDEX_SSHIF is both. */
ZEMA_API uint32_t Index_IsWanIndex(uint32_t ulIndex);
ZEMA_API uint32_t Index_IsVlanIfIndex(uint32_t ulIndex);

/* The instance when it lies from 1 to 15, else 1. */
ZEMA_API int32_t Index_GetValidWanDevInst(int32_t lInstance);

/* ---- TR-181 indexes ---- */

/* Packs four fields, the first one on top, into *pulIndex. None is masked. */
ZEMA_API void TR181_Common_MakeIndex(uint32_t ulField1, uint32_t ulField2, uint32_t ulField3,
                                     uint32_t ulField4, uint32_t *pulIndex);

/* Takes an index apart. */
ZEMA_API void TR181_Common_GetPrototype(uint32_t ulIndex, uint32_t *pulField1, uint8_t *pucField2,
                                        uint8_t *pucField3, uint8_t *pucField4);

/*
 * Writes the path of a bridge, "Device.Bridging.Bridge." and the number in its index, cut to ulSize - 1
 * characters and terminated, into pcPath of ulSize bytes. 0, also when nothing could be written because
 * ulSize is 0 or 1, which is recorded (1, the formatting's result, ulSize); 1, recorded (1), when an argument
 * is missing.
 */
ZEMA_API uint32_t TR181_Common_BridgeIndexToPath(const uint32_t *pulIndex, char *pcPath, uint32_t ulSize);

QX_END_DECLS

#endif
