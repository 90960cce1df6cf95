/// @file
/// The handset's network-profile service, libnapi.so.
///
/// The service keeps network access profiles: data accounts with one part per bearer (packet data
/// and two sets of circuit-switched data) and two proxy slots. It names a profile by a numeric ID
/// and by a profile name, and hands profiles out and takes them back as one fixed record.
///
/// Every call is synchronous, works on the stored profiles directly and is one transaction: it
/// takes effect completely or not at all. Names are NUL-terminated UTF-8 of 1 to 63 bytes without a
/// slash, at which the paths of a management tree are split, and none is ".", ".." or "*", which
/// stand for other things there; a profile that the service keeps under another name is listed, and
/// found, under a name that is one. Outputs are written on success only. A null pointer and a bad
/// name have codes of their own, and any call that needs the store can fail with NAPI_ERROR_CORRUPT
/// to NAPI_ERROR_UNAVAILABLE; below, only the other failures of a call are named.
#pragma once

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#include <type_traits>
#else
#include <stddef.h>
#include <stdint.h>
#endif

/// Bytes of one name slot: a name of at most 63 bytes and its terminator.
#define NAPI_NAME_SIZE 64

/// Bit of NAP_PROFILE_S::flags: the user may not edit the profile.
#define NAPI_FLAG_NOT_EDITABLE 0x00000001u

/// One profile. Numbers are in the handset's native little-endian order; an IPv4 address is a
/// 32-bit number with the first dotted part in its most significant byte, 0 for none. A text is
/// terminated by a NUL when it is shorter than its array and fills the array without one when it is
/// not. A part exists when its address is not empty. Reserved bytes belong to the service and are
/// carried through unchanged.
typedef struct NAP_PROFILE_S {
    uint8_t reserved000;    ///< of the service
    uint8_t creation;       ///< 1 in the record of a profile that is being created
    uint8_t reserved002[2]; ///< of the service
    uint32_t flags;         ///< bit 0 is NAPI_FLAG_NOT_EDITABLE, the others are the service's

    /* packet data, bearer "GSM-GPRS" */
    char gprsAddress[100];      ///< access point name
    char gprsAuthId[100];       ///< name by which the network knows the user
    char gprsAuthPassword[100]; ///< that goes with it, as it is stored
    uint8_t reserved134[4];     ///< of the service
    uint32_t gprsDns1;          ///< first name server, an IPv4 address
    uint32_t gprsDns2;          ///< second name server, an IPv4 address
    uint16_t gprsLinger;        ///< seconds that an idle connection is kept
    uint8_t reserved142[59];    ///< of the service

    /* circuit-switched data, bearer "GSM-CSD" */
    char csdAddress[44];      ///< dial number
    char csdAuthId[64];       ///< name by which the network knows the user
    char csdAuthPassword[64]; ///< that goes with it, as it is stored
    uint8_t reserved229[7];   ///< of the service
    uint32_t csdDns1;         ///< first name server, an IPv4 address
    uint32_t csdDns2;         ///< second name server, an IPv4 address
    uint16_t csdLinger;       ///< seconds that an idle connection is kept
    uint8_t reserved23A;      ///< of the service
    /// Line type and bit rate in one code: 0x04, 0x06, 0x07 and 0x0E are 2400, 4800, 9600 and 14400
    /// bit/s of a modem, 0x44, 0x46, 0x47 and 0x4B the same of ISDN; 0 when no rate is set.
    uint8_t csdSpeedCode;

    /* second set of circuit-switched data, bearer "GSM-CSD2" */
    char csd2Address[44];      ///< dial number
    char csd2AuthId[64];       ///< name by which the network knows the user
    char csd2AuthPassword[64]; ///< that goes with it, as it is stored
    uint8_t reserved2E8[4];    ///< of the service
    uint32_t csd2Dns1;         ///< first name server, an IPv4 address
    uint32_t csd2Dns2;         ///< second name server, an IPv4 address
    uint16_t csd2Linger;       ///< seconds that an idle connection is kept
    uint8_t reserved2F6;       ///< of the service
    uint8_t csd2SpeedCode;     ///< as csdSpeedCode

    /* proxy slots */
    char proxy1Address[100]; ///< host name or IP address of the proxy
    uint16_t proxy1Port;     ///< port number of the proxy
    char proxy1Text[100];    ///< of the slot; no node of the management tree shows it
    uint8_t proxy1Byte;      ///< of the slot; no node of the management tree shows it
    char proxy2Address[100]; ///< host name or IP address of the proxy
    uint8_t reserved427;     ///< of the service
    uint16_t proxy2Port;     ///< port number of the proxy
    char proxy2Text[100];    ///< of the slot; no node of the management tree shows it
    uint8_t proxy2Byte;      ///< of the slot; no node of the management tree shows it
    uint8_t reserved48F;     ///< of the service
} NAP_PROFILE_S;

#ifdef __cplusplus
// The layout is the service's binary interface: literal numbers, one line a member.
static_assert(offsetof(NAP_PROFILE_S, creation) == 0x001);
static_assert(offsetof(NAP_PROFILE_S, flags) == 0x004);
static_assert(offsetof(NAP_PROFILE_S, gprsAddress) == 0x008);
static_assert(offsetof(NAP_PROFILE_S, gprsAuthId) == 0x06C);
static_assert(offsetof(NAP_PROFILE_S, gprsAuthPassword) == 0x0D0);
static_assert(offsetof(NAP_PROFILE_S, gprsDns1) == 0x138);
static_assert(offsetof(NAP_PROFILE_S, gprsDns2) == 0x13C);
static_assert(offsetof(NAP_PROFILE_S, gprsLinger) == 0x140);
static_assert(offsetof(NAP_PROFILE_S, csdAddress) == 0x17D);
static_assert(offsetof(NAP_PROFILE_S, csdAuthId) == 0x1A9);
static_assert(offsetof(NAP_PROFILE_S, csdAuthPassword) == 0x1E9);
static_assert(offsetof(NAP_PROFILE_S, csdDns1) == 0x230);
static_assert(offsetof(NAP_PROFILE_S, csdDns2) == 0x234);
static_assert(offsetof(NAP_PROFILE_S, csdLinger) == 0x238);
static_assert(offsetof(NAP_PROFILE_S, csdSpeedCode) == 0x23B);
static_assert(offsetof(NAP_PROFILE_S, csd2Address) == 0x23C);
static_assert(offsetof(NAP_PROFILE_S, csd2AuthId) == 0x268);
static_assert(offsetof(NAP_PROFILE_S, csd2AuthPassword) == 0x2A8);
static_assert(offsetof(NAP_PROFILE_S, csd2Dns1) == 0x2EC);
static_assert(offsetof(NAP_PROFILE_S, csd2Dns2) == 0x2F0);
static_assert(offsetof(NAP_PROFILE_S, csd2Linger) == 0x2F4);
static_assert(offsetof(NAP_PROFILE_S, csd2SpeedCode) == 0x2F7);
static_assert(offsetof(NAP_PROFILE_S, proxy1Address) == 0x2F8);
static_assert(offsetof(NAP_PROFILE_S, proxy1Port) == 0x35C);
static_assert(offsetof(NAP_PROFILE_S, proxy1Text) == 0x35E);
static_assert(offsetof(NAP_PROFILE_S, proxy1Byte) == 0x3C2);
static_assert(offsetof(NAP_PROFILE_S, proxy2Address) == 0x3C3);
static_assert(offsetof(NAP_PROFILE_S, proxy2Port) == 0x428);
static_assert(offsetof(NAP_PROFILE_S, proxy2Text) == 0x42A);
static_assert(offsetof(NAP_PROFILE_S, proxy2Byte) == 0x48E);
static_assert(sizeof(NAP_PROFILE_S) == 1168);
static_assert(alignof(NAP_PROFILE_S) == 4);
static_assert(sizeof(NAP_PROFILE_S::gprsAddress) == 100);
static_assert(sizeof(NAP_PROFILE_S::csdAddress) == 44);
static_assert(sizeof(NAP_PROFILE_S::csdAuthId) == 64);
static_assert(sizeof(NAP_PROFILE_S::csdAuthPassword) == 64);
static_assert(sizeof(NAP_PROFILE_S::csd2Address) == 44);
static_assert(sizeof(NAP_PROFILE_S::csd2AuthId) == 64);
static_assert(sizeof(NAP_PROFILE_S::csd2AuthPassword) == 64);
static_assert(std::is_trivially_copyable_v<NAP_PROFILE_S> &&
              std::is_standard_layout_v<NAP_PROFILE_S>);
static_assert(std::has_unique_object_representations_v<NAP_PROFILE_S>, "hidden padding");
#endif

/// Results of the calls below. Callers of the service rely only on 0 against anything else; the
/// codes tell a person what went wrong.
enum NAPI_STATUS {
    NAPI_OK = 0,                   ///< done
    NAPI_ERROR_BAD_ARGUMENT = 1,   ///< a null pointer where the call needs one
    NAPI_ERROR_BAD_NAME = 2,       ///< a name that is empty, longer than 63 bytes, not UTF-8, has a
                                   ///< slash, or is ".", ".." or "*"
    NAPI_ERROR_NOT_FOUND = 3,      ///< no profile of that name or ID
    NAPI_ERROR_EXISTS = 4,         ///< a profile of that name is there already
    NAPI_ERROR_STORE_FULL = 5,     ///< the maximum number of profiles is stored
    NAPI_ERROR_CORRUPT = 6,        ///< the store is damaged or is not a profile store
    NAPI_ERROR_READ_ONLY = 7,      ///< the store cannot be written
    NAPI_ERROR_NO_SPACE = 8,       ///< the disk is full
    NAPI_ERROR_BUSY = 9,           ///< another process kept the store locked
    NAPI_ERROR_IO = 10,            ///< any other failure of the store
    NAPI_ERROR_VALUE_REFUSED = 11, ///< the store does not take a value of the record
    NAPI_ERROR_UNAVAILABLE = 12 ///< the service behind the store does not answer or denies access
};

#ifdef __cplusplus
extern "C" {
#endif

/// Lists the names of all profiles in the order of their IDs.
/// @param names  null, or *count slots of NAPI_NAME_SIZE bytes
/// @param count  with null names: receives the number of profiles. Otherwise: the number of
///               slots on entry, of filled slots on return. No slot beyond the capacity is written,
///               also when profiles were added since they were counted.
int NAPI_ListAllProfile(char *names, unsigned int *count);

/// Reads a profile into the caller's record. The two last arguments are reserved and 0, here and
/// below. @return NAPI_ERROR_NOT_FOUND for an unknown name.
int NAPI_ReadProfile(const char *name, NAP_PROFILE_S *record, int, int);

/// Replaces the record of an existing profile. @return NAPI_ERROR_NOT_FOUND for an unknown name.
int NAPI_ModifyProfile(const char *name, const NAP_PROFILE_S *record, int, int);

/// Stores a new profile and gives it an ID that was never used before.
/// @return NAPI_ERROR_EXISTS for a taken name, NAPI_ERROR_STORE_FULL at the maximum.
int NAPI_CreateProfile(const char *name, const NAP_PROFILE_S *record, int, int);

/// Deletes a profile. @return NAPI_ERROR_NOT_FOUND for an unknown name.
int NAPI_DeleteProfile(const char *name);

/// Stores the numeric ID of the profile in *id. @return NAPI_ERROR_NOT_FOUND for an unknown name.
int NAPI_GetProfileIDByName(const char *name, unsigned int *id);

/// Stores the name of the profile, terminated, in name: a buffer of NAPI_NAME_SIZE bytes.
/// @return NAPI_ERROR_NOT_FOUND for an unknown ID.
int NAPI_GetProfileNameByID(unsigned int id, char *name);

/// @return the largest number of profiles that can be stored, a usual one when the store cannot be
///         asked.
int NAPI_GetMaxProfiles(void);

/// @return NAPI_OK when a profile of that name is stored, NAPI_ERROR_NOT_FOUND when it is not, any
///         other status when that cannot be told.
int NAPI_IsProfileValid(const char *name);

#ifdef __cplusplus
}
#endif
