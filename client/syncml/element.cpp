#include "element.h"

#include <algorithm>
#include <array>

namespace syncml {
namespace {

// In the order of the enumeration; the codes are those of the token tables of SyncML 1.2.
constexpr std::array<ElementInfo, elementCount> elements{{
    {"Add", syncmlPage, 0x05},
    {"Alert", syncmlPage, 0x06},
    {"Anchor", metinfPage, 0x05},
    {"Archive", syncmlPage, 0x07},
    {"Atomic", syncmlPage, 0x08},
    {"Chal", syncmlPage, 0x09},
    {"Cmd", syncmlPage, 0x0a},
    {"CmdID", syncmlPage, 0x0b},
    {"CmdRef", syncmlPage, 0x0c},
    {"Copy", syncmlPage, 0x0d},
    {"Correlator", syncmlPage, 0x3c},
    {"Cred", syncmlPage, 0x0e},
    {"Data", syncmlPage, 0x0f},
    {"Delete", syncmlPage, 0x10},
    {"EMI", metinfPage, 0x06},
    {"Exec", syncmlPage, 0x11},
    {"Field", syncmlPage, 0x35},
    {"FieldLevel", metinfPage, 0x16},
    {"Filter", syncmlPage, 0x36},
    {"FilterType", syncmlPage, 0x38},
    {"Final", syncmlPage, 0x12},
    {"Format", metinfPage, 0x07},
    {"FreeID", metinfPage, 0x08},
    {"FreeMem", metinfPage, 0x09},
    {"Get", syncmlPage, 0x13},
    {"Item", syncmlPage, 0x14},
    {"Lang", syncmlPage, 0x15},
    {"Last", metinfPage, 0x0a},
    {"LocName", syncmlPage, 0x16},
    {"LocURI", syncmlPage, 0x17},
    {"Map", syncmlPage, 0x18},
    {"MapItem", syncmlPage, 0x19},
    {"Mark", metinfPage, 0x0b},
    {"MaxMsgSize", metinfPage, 0x0c},
    {"MaxObjSize", metinfPage, 0x15},
    {"Mem", metinfPage, 0x0d},
    {"MetInf", metinfPage, 0x0e},
    {"Meta", syncmlPage, 0x1a},
    {"MoreData", syncmlPage, 0x34},
    {"Move", syncmlPage, 0x3b},
    {"MsgID", syncmlPage, 0x1b},
    {"MsgRef", syncmlPage, 0x1c},
    {"Next", metinfPage, 0x0f},
    {"NextNonce", metinfPage, 0x10},
    {"NoResp", syncmlPage, 0x1d},
    {"NoResults", syncmlPage, 0x1e},
    {"NumberOfChanges", syncmlPage, 0x33},
    {"Put", syncmlPage, 0x1f},
    {"Record", syncmlPage, 0x37},
    {"Replace", syncmlPage, 0x20},
    {"RespURI", syncmlPage, 0x21},
    {"Results", syncmlPage, 0x22},
    {"Search", syncmlPage, 0x23},
    {"Sequence", syncmlPage, 0x24},
    {"SessionID", syncmlPage, 0x25},
    {"SftDel", syncmlPage, 0x26},
    {"SharedMem", metinfPage, 0x11},
    {"Size", metinfPage, 0x12},
    {"Source", syncmlPage, 0x27},
    {"SourceParent", syncmlPage, 0x39},
    {"SourceRef", syncmlPage, 0x28},
    {"Status", syncmlPage, 0x29},
    {"Sync", syncmlPage, 0x2a},
    {"SyncBody", syncmlPage, 0x2b},
    {"SyncHdr", syncmlPage, 0x2c},
    {"SyncML", syncmlPage, 0x2d},
    {"Target", syncmlPage, 0x2e},
    {"TargetParent", syncmlPage, 0x3a},
    {"TargetRef", syncmlPage, 0x2f},
    {"Type", metinfPage, 0x13},
    {"VerDTD", syncmlPage, 0x31},
    {"VerProto", syncmlPage, 0x32},
    {"Version", metinfPage, 0x14},
}};

constexpr bool byName(const ElementInfo &left, const ElementInfo &right)
{
    return left.name < right.name;
}
static_assert(std::is_sorted(elements.begin(), elements.end(), byName));

/// Letters that a name begins with, from A.
constexpr std::size_t letters = 26;

/// For each letter the first element whose name begins with it or with a later one; their number
/// after the last.
constexpr std::array<std::size_t, letters + 1> firstOfLetter = [] {
    std::array<std::size_t, letters + 1> first{};
    for (std::size_t letter = 0; letter <= letters; ++letter)
        while (first[letter] < elements.size() &&
               elements[first[letter]].name.front() < static_cast<char>('A' + letter))
            ++first[letter];
    return first;
}();

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

// In the order of the kinds.
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

constexpr std::size_t ruleNumber(CommandKind kind)
{
    return static_cast<std::size_t>(kind) - static_cast<std::size_t>(CommandKind::Add);
}
static_assert(std::ranges::all_of(commandRules, [](const CommandRule &rule) {
    return &rule == &commandRules[ruleNumber(rule.kind)];
}));

const CommandRule *ruleOf(CommandKind kind)
{
    return kind < CommandKind::Add ? nullptr : &commandRules[ruleNumber(kind)];
}

constexpr auto kindOfElement = [] {
    std::array<CommandKind, elementCount + 1> kinds{};
    for (const Element element : unsupportedCommands)
        kinds[static_cast<std::size_t>(element)] = CommandKind::Unsupported;
    for (const CommandRule &rule : commandRules)
        kinds[static_cast<std::size_t>(rule.element)] = rule.kind;
    return kinds;
}();
static_assert(CommandKind() == CommandKind::Unknown);

} // namespace

const ElementInfo &elementInfo(Element element)
{
    return elements[static_cast<std::size_t>(element)];
}

QString elementName(Element element)
{
    static const std::array<QString, elementCount> names = [] {
        std::array<QString, elementCount> made;
        std::ranges::transform(elements, made.begin(), [](const ElementInfo &info) {
            return QString::fromLatin1(QByteArrayView(info.name));
        });
        return made;
    }();
    return names[static_cast<std::size_t>(element)];
}

Element elementByName(QByteArrayView name)
{
    const std::string_view wanted(name.data(), static_cast<std::size_t>(name.size()));
    const auto letter = static_cast<std::size_t>(wanted.empty() ? 0 : wanted.front() - 'A');
    if (letter >= letters)
        return Element::Unknown;
    for (std::size_t index = firstOfLetter[letter]; index < firstOfLetter[letter + 1]; ++index)
        if (elements[index].name == wanted)
            return static_cast<Element>(index);
    return Element::Unknown;
}

Element elementByToken(quint8 page, quint8 token)
{
    if (page >= elementOfToken.size() || token >= tokenEnd)
        return Element::Unknown;
    return elementOfToken[page][token];
}

CommandKind commandKind(Element element)
{
    return kindOfElement[static_cast<std::size_t>(element)];
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
    if (element == Element::Unknown)
        return command.name ? *command.name : QString();
    return elementName(element);
}

} // namespace syncml
