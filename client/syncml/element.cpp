#include "element.h"

#include <algorithm>
#include <array>

namespace syncml {
namespace {

// In the order of the enumeration; the codes are those of the token tables of SyncML 1.2.
constexpr std::array<ElementInfo, elementCount> elements{{
    {u"Add", syncmlPage, 0x05},
    {u"Alert", syncmlPage, 0x06},
    {u"Anchor", metinfPage, 0x05},
    {u"Archive", syncmlPage, 0x07},
    {u"Atomic", syncmlPage, 0x08},
    {u"Chal", syncmlPage, 0x09},
    {u"Cmd", syncmlPage, 0x0a},
    {u"CmdID", syncmlPage, 0x0b},
    {u"CmdRef", syncmlPage, 0x0c},
    {u"Copy", syncmlPage, 0x0d},
    {u"Correlator", syncmlPage, 0x3c},
    {u"Cred", syncmlPage, 0x0e},
    {u"Data", syncmlPage, 0x0f},
    {u"Delete", syncmlPage, 0x10},
    {u"EMI", metinfPage, 0x06},
    {u"Exec", syncmlPage, 0x11},
    {u"Field", syncmlPage, 0x35},
    {u"FieldLevel", metinfPage, 0x16},
    {u"Filter", syncmlPage, 0x36},
    {u"FilterType", syncmlPage, 0x38},
    {u"Final", syncmlPage, 0x12},
    {u"Format", metinfPage, 0x07},
    {u"FreeID", metinfPage, 0x08},
    {u"FreeMem", metinfPage, 0x09},
    {u"Get", syncmlPage, 0x13},
    {u"Item", syncmlPage, 0x14},
    {u"Lang", syncmlPage, 0x15},
    {u"Last", metinfPage, 0x0a},
    {u"LocName", syncmlPage, 0x16},
    {u"LocURI", syncmlPage, 0x17},
    {u"Map", syncmlPage, 0x18},
    {u"MapItem", syncmlPage, 0x19},
    {u"Mark", metinfPage, 0x0b},
    {u"MaxMsgSize", metinfPage, 0x0c},
    {u"MaxObjSize", metinfPage, 0x15},
    {u"Mem", metinfPage, 0x0d},
    {u"MetInf", metinfPage, 0x0e},
    {u"Meta", syncmlPage, 0x1a},
    {u"MoreData", syncmlPage, 0x34},
    {u"Move", syncmlPage, 0x3b},
    {u"MsgID", syncmlPage, 0x1b},
    {u"MsgRef", syncmlPage, 0x1c},
    {u"Next", metinfPage, 0x0f},
    {u"NextNonce", metinfPage, 0x10},
    {u"NoResp", syncmlPage, 0x1d},
    {u"NoResults", syncmlPage, 0x1e},
    {u"NumberOfChanges", syncmlPage, 0x33},
    {u"Put", syncmlPage, 0x1f},
    {u"Record", syncmlPage, 0x37},
    {u"Replace", syncmlPage, 0x20},
    {u"RespURI", syncmlPage, 0x21},
    {u"Results", syncmlPage, 0x22},
    {u"Search", syncmlPage, 0x23},
    {u"Sequence", syncmlPage, 0x24},
    {u"SessionID", syncmlPage, 0x25},
    {u"SftDel", syncmlPage, 0x26},
    {u"SharedMem", metinfPage, 0x11},
    {u"Size", metinfPage, 0x12},
    {u"Source", syncmlPage, 0x27},
    {u"SourceParent", syncmlPage, 0x39},
    {u"SourceRef", syncmlPage, 0x28},
    {u"Status", syncmlPage, 0x29},
    {u"Sync", syncmlPage, 0x2a},
    {u"SyncBody", syncmlPage, 0x2b},
    {u"SyncHdr", syncmlPage, 0x2c},
    {u"SyncML", syncmlPage, 0x2d},
    {u"Target", syncmlPage, 0x2e},
    {u"TargetParent", syncmlPage, 0x3a},
    {u"TargetRef", syncmlPage, 0x2f},
    {u"Type", metinfPage, 0x13},
    {u"VerDTD", syncmlPage, 0x31},
    {u"VerProto", syncmlPage, 0x32},
    {u"Version", metinfPage, 0x14},
}};

constexpr bool byName(const ElementInfo &left, const ElementInfo &right)
{
    return left.name < right.name;
}
static_assert(std::is_sorted(elements.begin(), elements.end(), byName));

/// First tag code of a page, and one past the last.
constexpr quint8 firstToken = 0x05;
constexpr quint8 tokenEnd = 0x40;

using TokenPage = std::array<Element, tokenEnd>;

constexpr TokenPage tokensOfPage(quint8 page)
{
    TokenPage result{};
    result.fill(Element::Unknown);
    for (std::size_t index = 0; index < elements.size(); ++index) {
        if (elements[index].page == page)
            result[elements[index].token] = static_cast<Element>(index);
    }
    return result;
}

constexpr std::array<TokenPage, 2> elementOfToken{tokensOfPage(syncmlPage),
                                                  tokensOfPage(metinfPage)};

/// Two elements with one code would leave one of them out of the page.
constexpr bool everyElementHasItsToken()
{
    for (std::size_t index = 0; index < elements.size(); ++index) {
        const ElementInfo &info = elements[index];
        if (info.token < firstToken ||
            elementOfToken[info.page][info.token] != static_cast<Element>(index))
            return false;
    }
    return true;
}
static_assert(everyElementHasItsToken());

struct CommandRule {
    CommandKind kind;
    Element element;
    bool holdsCommands;
    std::span<const CommandPart> parts;
};

using enum Element;
using enum Occurs;

constexpr CommandPart itemParts[] = {{CmdID, Once}, {Meta, AtMostOnce}, {Item, AtLeastOnce}};
constexpr CommandPart alertParts[] = {
    {CmdID, Once}, {Data, AtMostOnce}, {Correlator, AtMostOnce}, {Item, Any}};
constexpr CommandPart execParts[] = {
    {CmdID, Once}, {Meta, AtMostOnce}, {Correlator, AtMostOnce}, {Item, Once}};
constexpr CommandPart containerParts[] = {{CmdID, Once}, {Meta, AtMostOnce}};
constexpr CommandPart resultsParts[] = {
    {CmdID, Once},           {MsgRef, AtMostOnce},    {CmdRef, Once},     {Meta, AtMostOnce},
    {TargetRef, AtMostOnce}, {SourceRef, AtMostOnce}, {Item, AtLeastOnce}};
constexpr CommandPart statusParts[] = {{CmdID, Once},      {MsgRef, Once},   {CmdRef, Once},
                                       {Cmd, Once},        {TargetRef, Any}, {SourceRef, Any},
                                       {Chal, AtMostOnce}, {Data, Once},     {Item, Any}};

constexpr CommandRule commandRules[] = {
    {CommandKind::Add, Add, false, itemParts},
    {CommandKind::Alert, Alert, false, alertParts},
    {CommandKind::Atomic, Atomic, true, containerParts},
    {CommandKind::Copy, Copy, false, itemParts},
    {CommandKind::Delete, Delete, false, itemParts},
    {CommandKind::Exec, Exec, false, execParts},
    {CommandKind::Get, Get, false, itemParts},
    {CommandKind::Replace, Replace, false, itemParts},
    {CommandKind::Results, Results, false, resultsParts},
    {CommandKind::Sequence, Sequence, true, containerParts},
    {CommandKind::Status, Status, false, statusParts},
};

constexpr Element unsupportedCommands[] = {Map, Move, Put, Search, Sync};

template <class Match>
const CommandRule *findRule(Match match)
{
    const auto *const rule = std::ranges::find_if(commandRules, match);
    return rule == std::end(commandRules) ? nullptr : rule;
}

const CommandRule *ruleOf(CommandKind kind)
{
    return findRule([kind](const CommandRule &rule) { return rule.kind == kind; });
}

} // namespace

const ElementInfo &elementInfo(Element element)
{
    return elements[static_cast<std::size_t>(element)];
}

QString elementName(Element element)
{
    return QStringView(elementInfo(element).name).toString();
}

Element elementByName(QStringView name)
{
    const std::u16string_view wanted(name.utf16(), static_cast<std::size_t>(name.size()));
    const auto *const found = std::ranges::lower_bound(elements, wanted, {}, &ElementInfo::name);
    if (found == elements.end() || found->name != wanted)
        return Element::Unknown;
    return static_cast<Element>(found - elements.begin());
}

Element elementByToken(quint8 page, quint8 token)
{
    if (page >= elementOfToken.size() || token >= tokenEnd)
        return Element::Unknown;
    return elementOfToken[page][token];
}

CommandKind commandKind(Element element)
{
    if (const CommandRule *rule =
            findRule([element](const CommandRule &rule) { return rule.element == element; }))
        return rule->kind;
    return std::ranges::find(unsupportedCommands, element) != std::end(unsupportedCommands)
               ? CommandKind::Unsupported
               : CommandKind::Unknown;
}

Element commandElement(CommandKind kind)
{
    const CommandRule *const rule = ruleOf(kind);
    return rule ? rule->element : Element::Unknown;
}

std::span<const CommandPart> commandParts(CommandKind kind)
{
    const CommandRule *const rule = ruleOf(kind);
    return rule ? rule->parts : std::span<const CommandPart>();
}

bool holdsCommands(CommandKind kind)
{
    const CommandRule *const rule = ruleOf(kind);
    return rule && rule->holdsCommands;
}

QString commandName(const Command &command)
{
    const Element element = commandElement(command.kind);
    return element == Element::Unknown ? command.name : elementName(element);
}

} // namespace syncml
