// The fields of a profile's record, under the names that platform/napi.h gives them.
#pragma once

#include "napi.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace profile_record {

enum class FieldKind {
    Reserved, ///< bytes of the service's own
    Number,   ///< little-endian, of 1, 2 or 4 bytes
    Ipv4,
    Text,
    Secret ///< a text that is not to be shown
};

struct RecordField {
    std::string_view name;
    std::size_t offset; ///< of its bytes in the record
    std::size_t size;
    FieldKind kind;
};

#define KUB_RECORD_FIELD(kind, member)                                                             \
    RecordField                                                                                    \
    {                                                                                              \
#member, offsetof(NAP_PROFILE_S, member), sizeof(NAP_PROFILE_S::member), FieldKind::kind   \
    }

/// All of them, in the order of their bytes, without a gap.
inline constexpr RecordField recordFields[] = {
    KUB_RECORD_FIELD(Reserved, reserved000),
    KUB_RECORD_FIELD(Number, creation),
    KUB_RECORD_FIELD(Reserved, reserved002),
    KUB_RECORD_FIELD(Number, flags),
    KUB_RECORD_FIELD(Text, gprsAddress),
    KUB_RECORD_FIELD(Text, gprsAuthId),
    KUB_RECORD_FIELD(Secret, gprsAuthPassword),
    KUB_RECORD_FIELD(Reserved, reserved134),
    KUB_RECORD_FIELD(Ipv4, gprsDns1),
    KUB_RECORD_FIELD(Ipv4, gprsDns2),
    KUB_RECORD_FIELD(Number, gprsLinger),
    KUB_RECORD_FIELD(Reserved, reserved142),
    KUB_RECORD_FIELD(Text, csdAddress),
    KUB_RECORD_FIELD(Text, csdAuthId),
    KUB_RECORD_FIELD(Secret, csdAuthPassword),
    KUB_RECORD_FIELD(Reserved, reserved229),
    KUB_RECORD_FIELD(Ipv4, csdDns1),
    KUB_RECORD_FIELD(Ipv4, csdDns2),
    KUB_RECORD_FIELD(Number, csdLinger),
    KUB_RECORD_FIELD(Reserved, reserved23A),
    KUB_RECORD_FIELD(Number, csdSpeedCode),
    KUB_RECORD_FIELD(Text, csd2Address),
    KUB_RECORD_FIELD(Text, csd2AuthId),
    KUB_RECORD_FIELD(Secret, csd2AuthPassword),
    KUB_RECORD_FIELD(Reserved, reserved2E8),
    KUB_RECORD_FIELD(Ipv4, csd2Dns1),
    KUB_RECORD_FIELD(Ipv4, csd2Dns2),
    KUB_RECORD_FIELD(Number, csd2Linger),
    KUB_RECORD_FIELD(Reserved, reserved2F6),
    KUB_RECORD_FIELD(Number, csd2SpeedCode),
    KUB_RECORD_FIELD(Text, proxy1Address),
    KUB_RECORD_FIELD(Number, proxy1Port),
    KUB_RECORD_FIELD(Text, proxy1Text),
    KUB_RECORD_FIELD(Number, proxy1Byte),
    KUB_RECORD_FIELD(Text, proxy2Address),
    KUB_RECORD_FIELD(Reserved, reserved427),
    KUB_RECORD_FIELD(Number, proxy2Port),
    KUB_RECORD_FIELD(Text, proxy2Text),
    KUB_RECORD_FIELD(Number, proxy2Byte),
    KUB_RECORD_FIELD(Reserved, reserved48F),
};

#undef KUB_RECORD_FIELD

/// Whether each field begins where the one before it ends, and the last ends with the record.
constexpr bool coversRecord(std::span<const RecordField> fields)
{
    std::size_t end = 0;
    for (const RecordField &field : fields) {
        if (field.offset != end)
            return false;
        end += field.size;
    }
    return end == sizeof(NAP_PROFILE_S);
}
static_assert(coversRecord(recordFields));

/// The field of that name; does not compile when there is none.
consteval const RecordField &fieldNamed(std::string_view name)
{
    for (const RecordField &field : recordFields)
        if (field.name == name)
            return field;
    throw "no such field";
}

/// Its bytes in a record.
std::string_view bytesOf(const RecordField &field, const NAP_PROFILE_S &record);
/// Of a number or an address.
std::uint32_t numberOf(const RecordField &field, const NAP_PROFILE_S &record);
/// "10.0.0.1"
std::string ipv4Text(std::uint32_t address);
/// What a person reads: a decimal number, a dotted address, the bytes of a text up to its
/// terminator or to the end of its array, hexadecimal digits of reserved bytes.
std::string textOf(const RecordField &field, const NAP_PROFILE_S &record);

/// Puts an asterisk in the place of every byte of a secret, those after its terminator included,
/// which may be left of a longer one. Bytes that are 0 stay.
void overwriteSecrets(NAP_PROFILE_S &record);

} // namespace profile_record
