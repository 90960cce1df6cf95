#include "tree_tokens.h"

#include <cstddef>
#include <iterator>

namespace syncml {
namespace {

constexpr quint8 firstTreeToken = 0x05;

// From the first code on without a gap.
constexpr std::string_view treeElements[] = {
    "AccessType",   "ACL",          "Add",     "b64",         "bin",       "bool",
    "chr",          "CaseSense",    "CIS",     "Copy",        "CS",        "date",
    "DDFName",      "DefaultValue", "Delete",  "Description", "DFFormat",  "DFProperties",
    "DFTitle",      "DFType",       "Dynamic", "Exec",        "float",     "Format",
    "Get",          "int",          "Man",     "MgmtTree",    "MIME",      "Mod",
    "Name",         "Node",         "node",    "NodeName",    "null",      "Occurrence",
    "One",          "OneOrMore",    "OneOrN",  "Path",        "Permanent", "Replace",
    "RTProperties", "Scope",        "Size",    "time",        "Title",     "TStamp",
    "Type",         "Value",        "VerDTD",  "VerNo",       "xml",       "ZeroOrMore",
    "ZeroOrN",      "ZeroOrOne"};

constexpr quint8 codeOf(std::string_view name)
{
    std::size_t index = 0;
    while (treeElements[index] != name)
        ++index;
    return static_cast<quint8>(firstTreeToken + index);
}
static_assert(codeOf("MgmtTree") == 0x20 && codeOf("RTProperties") == 0x2f &&
              codeOf("ZeroOrOne") == 0x3c);

} // namespace

std::string_view treeElementName(quint8 token)
{
    const std::size_t index = static_cast<std::size_t>(token) - firstTreeToken;
    return token >= firstTreeToken && index < std::size(treeElements) ? treeElements[index]
                                                                      : std::string_view();
}

} // namespace syncml
