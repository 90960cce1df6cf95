#include "record_fields.h"

#include <algorithm>
#include <cstring>

namespace profile_record {

std::string_view bytesOf(const RecordField &field, const NAP_PROFILE_S &record)
{
    return {reinterpret_cast<const char *>(&record) + field.offset, field.size};
}

std::uint32_t numberOf(const RecordField &field, const NAP_PROFILE_S &record)
{
    std::uint32_t number = 0;
    const std::string_view bytes = bytesOf(field, record);
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    return number;
}

std::string ipv4Text(std::uint32_t address)
{
    std::string text;
    for (unsigned int shift : {24U, 16U, 8U, 0U})
        text += std::to_string(address >> shift & 0xFFU) + (shift == 0 ? "" : ".");
    return text;
}

std::string textOf(const RecordField &field, const NAP_PROFILE_S &record)
{
    const std::string_view bytes = bytesOf(field, record);
    switch (field.kind) {
    case FieldKind::Number:
        return std::to_string(numberOf(field, record));
    case FieldKind::Ipv4:
        return ipv4Text(numberOf(field, record));
    case FieldKind::Text:
    case FieldKind::Secret:
        return std::string(bytes.substr(0, bytes.find('\0')));
    case FieldKind::Reserved:
        break;
    }
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += {digits[value >> 4U], digits[value & 0xFU]};
    }
    return text;
}

void overwriteSecrets(NAP_PROFILE_S &record)
{
    for (const RecordField &field : recordFields) {
        if (field.kind != FieldKind::Secret)
            continue;
        char *const bytes = reinterpret_cast<char *>(&record) + field.offset;
        std::replace_if(
            bytes, bytes + field.size, [](char byte) { return byte != '\0'; }, '*');
    }
}

} // namespace profile_record
