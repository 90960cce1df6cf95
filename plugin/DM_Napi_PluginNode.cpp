// Node values.
//
// A leaf's value lives in one of two places. Leaves of the field table below live in the profile
// record: each read fetches the record afresh, each write is a read-modify-write of the whole
// record, and nothing is cached. All other leaves live in the node itself, where the engine's base
// class keeps them; two of those, "Bearer" and "Conn", change the record or a mapping file on the
// way.
//
// Contents
//   Bearers and their parts of the record
//   Leaf tables
//   Line types and speed codes
//   IPv4 addresses and value types
//   Life cycle
//   Names taken from the node's path
//   Reading a value
//   Writing a value
//   Moving a profile to another bearer

#include "DM_Napi_PluginNode.h"

#include "DM_Napi_Plugin.h"
#include "DM_Napi_PluginTree.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>
#include <QStringDecoder>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

// ---- Bearers and their parts of the record ------------------------------------------------------

#define TEXT_FIELD(member)                                                                         \
    {                                                                                              \
        offsetof(NAP_PROFILE_S, member), sizeof(NAP_PROFILE_S::member)                             \
    }

const BearerPart BEARER_PARTS[BEARER_COUNT] = {
    {GPRS_BEARER, "Ph1DC1", "Ph1", &ProfileInfo::bIsGPRS, TEXT_FIELD(gprsAddress),
     TEXT_FIELD(gprsAuthId), TEXT_FIELD(gprsAuthPassword), &NAP_PROFILE_S::gprsDns1,
     &NAP_PROFILE_S::gprsDns2, &NAP_PROFILE_S::gprsLinger, nullptr},
    {CSD_BEARER, "Ph2DC1", "Ph2", &ProfileInfo::bIsCSD, TEXT_FIELD(csdAddress),
     TEXT_FIELD(csdAuthId), TEXT_FIELD(csdAuthPassword), &NAP_PROFILE_S::csdDns1,
     &NAP_PROFILE_S::csdDns2, &NAP_PROFILE_S::csdLinger, &NAP_PROFILE_S::csdSpeedCode},
    {CSD2_BEARER, "Ph3DC1", "Ph3", &ProfileInfo::bIsCSD2, TEXT_FIELD(csd2Address),
     TEXT_FIELD(csd2AuthId), TEXT_FIELD(csd2AuthPassword), &NAP_PROFILE_S::csd2Dns1,
     &NAP_PROFILE_S::csd2Dns2, &NAP_PROFILE_S::csd2Linger, &NAP_PROFILE_S::csd2SpeedCode},
};

namespace {

char *FieldBytes(NAP_PROFILE_S *record, const TextField &field)
{
    return reinterpret_cast<char *>(record) + field.offset;
}

const char *FieldBytes(const NAP_PROFILE_S *record, const TextField &field)
{
    return reinterpret_cast<const char *>(record) + field.offset;
}

void ClearField(NAP_PROFILE_S *record, const TextField &field)
{
    std::memset(FieldBytes(record, field), 0, field.size);
}

/// Zeroes the field and copies the text into it, as much as fits: a full field has no terminator.
void StoreText(NAP_PROFILE_S *record, const TextField &field, const DMString &text)
{
    ClearField(record, field);
    std::memcpy(FieldBytes(record, field), text.text(), std::min(text.length(), field.size));
}

} // namespace

const BearerPart *FindBearer(const DMString &bearer)
{
    for (const BearerPart &part : BEARER_PARTS)
        if (bearer == part.bearer)
            return &part;
    return nullptr;
}

void ClearBearerPart(NAP_PROFILE_S *record, const BearerPart &part)
{
    ClearField(record, part.address);
    ClearField(record, part.authId);
    ClearField(record, part.authPassword);
    record->*part.dns1 = 0;
    record->*part.dns2 = 0;
    record->*part.linger = 0;
    if (part.speedCode)
        record->*part.speedCode = 0;
}

DMString RecordText(const NAP_PROFILE_S &record, const char *field)
{
    const char *const end = reinterpret_cast<const char *>(&record) + sizeof record;
    return DMString(field, strnlen(field, static_cast<std::size_t>(end - field)));
}

// ---- Leaf tables --------------------------------------------------------------------------------

namespace {

enum class FieldKind { Text, Dns, Linger, LineType, Speed };

/// A leaf of a NAPDEF-kind profile that lives in the record of the profile's bearer.
struct NapdefLeaf {
    std::string_view name;
    FieldKind kind;
    TextField BearerPart::*text = nullptr;                    // of a Text
    std::uint32_t NAP_PROFILE_S::*BearerPart::*dns = nullptr; // of a Dns
};

constexpr NapdefLeaf NAPDEF_LEAVES[] = {
    {"Speed", FieldKind::Speed},
    {"Addr", FieldKind::Text, &BearerPart::address},
    {"DNS1", FieldKind::Dns, nullptr, &BearerPart::dns1},
    {"DNS2", FieldKind::Dns, nullptr, &BearerPart::dns2},
    {"Linger", FieldKind::Linger},
    {"LineType", FieldKind::LineType},
    {"AuthId", FieldKind::Text, &BearerPart::authId},
    {"AuthPw", FieldKind::Text, &BearerPart::authPassword},
};

constexpr std::string_view PROXY_LEAVES[] = {"PortNbr", "Addr", "UserEditable"};

/// A proxy slot of the record. The third slot that a profile node shows has no place in it.
struct ProxySlot {
    const char *phName;
    TextField address;
    std::uint16_t NAP_PROFILE_S::*port;
};

constexpr ProxySlot PROXY_SLOTS[] = {
    {"Ph1", TEXT_FIELD(proxy1Address), &NAP_PROFILE_S::proxy1Port},
    {"Ph2", TEXT_FIELD(proxy2Address), &NAP_PROFILE_S::proxy2Port},
};
constexpr char SLOT_WITHOUT_RECORD[] = "Ph3";

/// @return the leaf of that name, or null.
const NapdefLeaf *FindNapdefLeaf(const DMString &name)
{
    const std::string_view text(name.text(), name.length());
    for (const NapdefLeaf &leaf : NAPDEF_LEAVES)
        if (text == leaf.name)
            return &leaf;
    return nullptr;
}

/// @return the slot of that name, or null for one that the record does not have.
const ProxySlot *FindProxySlot(const DMString &phName)
{
    for (const ProxySlot &slot : PROXY_SLOTS)
        if (phName == slot.phName)
            return &slot;
    return nullptr;
}

} // namespace

bool IsFieldInRecord(const DMString &name, bool isNAPDEF)
{
    if (isNAPDEF)
        return FindNapdefLeaf(name) != nullptr;
    return std::find(std::begin(PROXY_LEAVES), std::end(PROXY_LEAVES),
                     std::string_view(name.text())) != std::end(PROXY_LEAVES);
}

// ---- Line types and speed codes -----------------------------------------------------------------

namespace {

constexpr int SPEED_COUNT = 5;
constexpr unsigned int BIT_RATES[SPEED_COUNT] = {0, 14400, 9600, 4800, 2400};

struct LineTypeRow {
    const char *lineType;
    std::uint8_t codes[SPEED_COUNT]; // by index of BIT_RATES
};

// The last row repeats the first: V.110 and analogue modems share their codes.
constexpr LineTypeRow LINE_TYPES[] = {
    {"ANALOG-MODEM", {0x00, 0x0E, 0x07, 0x06, 0x04}},
    {"Isdn", {0x00, 0x4B, 0x47, 0x46, 0x44}},
    {"V.110", {0x00, 0x0E, 0x07, 0x06, 0x04}},
};

/// Place of the first cell with the code: its row, and its column in speedIndex. Null for none.
const LineTypeRow *FindCode(std::uint8_t code, int &speedIndex)
{
    for (const LineTypeRow &row : LINE_TYPES) {
        const auto *const cell = std::find(std::begin(row.codes), std::end(row.codes), code);
        if (cell != std::end(row.codes)) {
            speedIndex = static_cast<int>(cell - std::begin(row.codes));
            return &row;
        }
    }
    return nullptr;
}

/// @return the row of the line type, or null.
const LineTypeRow *FindLineType(const DMString &lineType)
{
    for (const LineTypeRow &row : LINE_TYPES)
        if (lineType == row.lineType)
            return &row;
    return nullptr;
}

} // namespace

unsigned int SpeedCodeToBitRate(std::uint8_t code)
{
    int speedIndex = 0;
    return FindCode(code, speedIndex) ? BIT_RATES[speedIndex] : 0;
}

DMString SpeedCodeToLineType(std::uint8_t code)
{
    int speedIndex = 0;
    const LineTypeRow *const row = FindCode(code, speedIndex);
    return DMString((row ? row : LINE_TYPES)->lineType);
}

std::uint8_t LineTypeToSpeedCode(const DMString &lineType, unsigned int bitRate)
{
    const LineTypeRow *const known = FindLineType(lineType);
    const LineTypeRow &row = known ? *known : LINE_TYPES[0];
    for (int i = 0; i < SPEED_COUNT; ++i)
        if (BIT_RATES[i] == bitRate)
            return row.codes[i];
    return row.codes[0];
}

bool IsLineType(const DMString &text)
{
    return FindLineType(text) != nullptr;
}

bool IsBitRate(int bitRate)
{
    return std::any_of(std::begin(BIT_RATES), std::end(BIT_RATES), [bitRate](unsigned int known) {
        return static_cast<int>(known) == bitRate;
    });
}

// ---- IPv4 addresses and value types -------------------------------------------------------------

namespace {

/// Parses four decimal parts of one to three digits, each at most 255, with white space around them
/// as servers send it that indent their XML, and nothing else. Qt's own parser would take short,
/// octal and hexadecimal forms, blanks in between and IPv6.
std::optional<std::uint32_t> ParseDottedQuad(const char *given)
{
    // Without the flags a byte order mark in front and half a character at the end would vanish.
    QStringDecoder decode(QStringDecoder::Utf8, QStringConverter::Flag::Stateless |
                                                    QStringConverter::Flag::ConvertInitialBom);
    const std::string trimmed = QString(decode(given)).trimmed().toStdString();
    std::string_view text = trimmed;
    constexpr int PARTS = 4;
    std::uint32_t address = 0;
    for (int i = 0; i < PARTS; ++i) {
        const std::size_t dot = text.find('.');
        if ((dot == std::string_view::npos) != (i == PARTS - 1))
            return std::nullopt;
        const std::string_view part = text.substr(0, dot);
        std::uint8_t number = 0;
        const char *const end = part.data() + part.size();
        const auto [stop, error] = std::from_chars(part.data(), end, number);
        if (part.size() > 3 || error != std::errc() || stop != end)
            return std::nullopt;
        address = address << 8 | number;
        text.remove_prefix(i == PARTS - 1 ? text.size() : dot + 1);
    }
    return address;
}

} // namespace

DMString Ipv4ToText(std::uint32_t address)
{
    return DMString(QHostAddress(address).toString().toUtf8().constData());
}

const char *DataTypeName(const DmtData &value)
{
    static constexpr const char *NAMES[] = {"null", "string", "int", "bool", "bin", "node"};
    const signed char type = value.GetType();
    return type >= DmtData::Null && type <= DmtData::Node ? NAMES[type] : NAMES[DmtData::Node];
}

// ---- Life cycle ---------------------------------------------------------------------------------

DM_NAPI_PluginNode::DM_NAPI_PluginNode(const JemSmartPtr<DmtPluginTree> &tree, const char *path,
                                       const DMStringVector &childNames)
{
    DmtPluginNode::Init(tree, path, childNames);
}

DM_NAPI_PluginNode::DM_NAPI_PluginNode(const JemSmartPtr<DmtPluginTree> &tree, const char *path,
                                       const DmtData &value)
{
    DmtPluginNode::Init(tree, path, value, 0);
}

DM_NAPI_PluginNode::~DM_NAPI_PluginNode() = default;

DMString DM_NAPI_PluginNode::GetName() const noexcept
{
    return m_name;
}

std::uint8_t DM_NAPI_PluginNode::HasChunkedValue() const noexcept
{
    return m_hasChunkedValue;
}

JemSmartPtr<DM_NAPI_PluginTree> DM_NAPI_PluginNode::OwningTree() const
{
    JemSmartPtr<DmtTree> tree;
    if (GetTree(tree) != DMT_OK)
        return {};
    return JemSmartPtr<DM_NAPI_PluginTree>(static_cast<DM_NAPI_PluginTree *>(tree.get()));
}

// ---- Names taken from the node's path -----------------------------------------------------------

namespace {

/// The text after the last slash. Without a slash: the whole path.
std::string_view LastSegment(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

/// The path without its last component and the slash before it; empty when there is no slash.
std::string_view ParentPath(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

/// An empty view gives an empty text, as opposed to a null one.
DMString ToDMString(std::string_view text)
{
    return text.empty() ? DMString("") : DMString(text.data(), text.size());
}

} // namespace

DMString DM_NAPI_PluginNode::GetParentNodeName() const
{
    LOG_TRACE("Enter: GetParentNodeName()! NodePath = %s\n", m_path.text());
    if (m_path.empty())
        return DMString("");
    const DMString parent = ToDMString(LastSegment(ParentPath(m_path.text())));
    LOG_TRACE("Leave: GetParentNodeName(), Parent node name = %s\n", parent.text());
    return parent;
}

DMString DM_NAPI_PluginNode::GetGrandParentNodeName() const
{
    const std::string_view parentPath = ParentPath(m_path.text());
    const std::string_view grandParentPath = ParentPath(parentPath);
    // The first segment of a path does not count as a grandparent: its parent is the mount root.
    if (grandParentPath.find('/') == std::string_view::npos)
        return DMString("");
    const DMString grandParent = ToDMString(LastSegment(grandParentPath));
    LOG_TRACE("GetGrandParentNodeName(): NodePath = %s, ParentPath = %s, GrandParentPath=%s, "
              "GrandParentnode = %s\n",
              m_path.text(), ToDMString(parentPath).text(), ToDMString(grandParentPath).text(),
              grandParent.text());
    return grandParent;
}

DMString DM_NAPI_PluginNode::GetProfileNodeName() const
{
    DMString fullPath;
    return ToDMString(ProfileNodeName(OwningTree().get(), fullPath));
}

std::string_view DM_NAPI_PluginNode::ProfileNodeName(const DM_NAPI_PluginTree *tree,
                                                     DMString &fullPath) const
{
    LOG_TRACE("Enter: GetProfileNodeName()! NodePath = %s\n", m_path.text());
    if (m_path.empty() || !tree)
        return {};
    const std::string_view root = tree->IsNAPDEF() ? CONN_ROOT_PATH : INTPROFS_ROOT_PATH;
    std::string_view rest(m_path.text());
    if (tree->GetRootPath().text() != root) { // else m_path starts right after the root
        fullPath = tree->GetRootPath() + "/" + m_path;
        rest = fullPath.text();
        const std::size_t rootPosition = rest.find(root);
        if (rootPosition == std::string_view::npos)
            return {};
        rest.remove_prefix(std::min(rest.size(), rootPosition + root.size() + 1));
    }
    const std::string_view profileNode = rest.substr(0, rest.find('/'));
    LOG_TRACE("Leave: GetProfileNodeName()! Profile Node name: %s \n",
              ToDMString(profileNode).text());
    return profileNode;
}

// ---- Reading a value ----------------------------------------------------------------------------

namespace {

/// What a profile's "Bearer" leaf says.
struct BearerLeaf {
    /// Reads the leaf through the tree. A profile without one is on the default bearer.
    BearerLeaf(DmtTree &tree, std::string_view profileNodeName);

    NodePath path;
    DMString bearer;    // DEFAULT_BEARER when the leaf does not tell
    bool usable = true; // false: the leaf is there, but has no text
};

BearerLeaf::BearerLeaf(DmtTree &tree, std::string_view profileNodeName) : path(profileNodeName)
{
    path.Enter("Bearer");
    JemSmartPtr<DmtNode> node;
    if (tree.GetNode(path.text(), node) == DMT_OK) {
        DmtData value;
        usable =
            node->GetValue(value) == DMT_OK && value.GetString(bearer) == DMT_OK && !bearer.empty();
    }
    if (bearer.empty())
        bearer = DEFAULT_BEARER;
}

/// The text that starts at a field of a record, as RecordText reads it.
DmtData TextValue(const NAP_PROFILE_S &record, const char *field)
{
    const char *const end = reinterpret_cast<const char *>(&record) + sizeof record;
    const bool isTerminated = std::memchr(field, '\0', static_cast<std::size_t>(end - field));
    return isTerminated ? DmtData(field) : DmtData(RecordText(record, field).c_str());
}

} // namespace

int DM_NAPI_PluginNode::GetValue(DmtData &value) noexcept
{
    DMString name;
    GetNodeName(name);
    LOG_TRACE("Enter: GetValue()! this = 0x%x, NodeName = %s\n",
              static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(this)), name.text());
    const JemSmartPtr<DM_NAPI_PluginTree> tree = OwningTree();
    if (!tree)
        return DMT_COMMAND_FAILED;
    if (!IsFieldInRecord(name, tree->IsNAPDEF())) {
        LOG_TRACE("Get value from DMT.\n");
        value = m_value;
        LOG_TRACE("NodePath=%s, type=%s\n", m_path.text(), DataTypeName(value));
        LOG_TRACE("Leave: GetValue()! \n");
        return DMT_OK;
    }
    DMString fullPath;
    DM_NAPI_PluginTree::NameBuffer profileName;
    if (const int status =
            tree->GetProfileName(ProfileNodeName(tree.get(), fullPath), profileName)) {
        LOG_FAILURE("Leave: GetValue() fail! GetProfileName() return error!\n");
        return status;
    }
    NAP_PROFILE_S record{};
    if (const int result = NAPI_ReadProfile(profileName.data(), &record, 0, 0)) {
        LOG_FAILURE("Leave: GetValue() fail! NAPI_ReadProfile() return %d! \n", result);
        return DMT_FAILED;
    }
    LOG_TRACE("NAPI_ReadProfile: profilename = %s\n", profileName.data());
    const int status = tree->IsNAPDEF() ? ReadNapdefValue(tree.get(), name, &record, value)
                                        : GetValueforPROXY(name, &record, value);
    if (status != DMT_OK) {
        LOG_FAILURE("Leave: GetValue() fail! GetValueforNAPDEF or GetValueforPROXY return %d\n",
                    status);
        return status;
    }
    LOG_TRACE("Leave: GetValue()! \n");
    return DMT_OK;
}

int DM_NAPI_PluginNode::GetValueforNAPDEF(const DMString &name, const NAP_PROFILE_S *record,
                                          DmtData &value) const
{
    return ReadNapdefValue(OwningTree().get(), name, record, value);
}

int DM_NAPI_PluginNode::ReadNapdefValue(DM_NAPI_PluginTree *tree, const DMString &name,
                                        const NAP_PROFILE_S *record, DmtData &value) const
{
    LOG_TRACE("Enter: GetValueforNAPDEF()! NodeName = %s\n", name.text());
    if (!tree)
        return DMT_COMMAND_FAILED;
    DMString fullPath;
    const BearerLeaf leaf(*tree, ProfileNodeName(tree, fullPath));
    if (!leaf.usable)
        LOG_TRACE("Get %s value error,use default value!\n", leaf.path.text());
    LOG_TRACE("Bearer = %s\n", leaf.bearer.text());
    const BearerPart *const part = FindBearer(leaf.bearer);
    if (!part) {
        LOG_FAILURE("Leave: GetValueforNAPDEF() fail! Invalid Bearer type: %s\n",
                    leaf.bearer.text());
        return DMT_FAILED;
    }
    const NapdefLeaf *const field = FindNapdefLeaf(name);
    if (!field) {
        LOG_FAILURE("Leave: GetValueforNAPDEF() fail! The node %s is not supported\n", name.text());
        return DMT_FAILED;
    }
    switch (field->kind) {
    case FieldKind::Text:
        value = TextValue(*record, FieldBytes(record, part->*field->text));
        break;
    case FieldKind::Dns:
        value = DmtData(Ipv4ToText(record->*(part->*field->dns)).c_str());
        break;
    case FieldKind::Linger:
        value = DmtData(static_cast<int>(record->*part->linger));
        break;
    case FieldKind::LineType:
        // Packet data has no line: the node keeps what it was given.
        value = part->speedCode ? DmtData(SpeedCodeToLineType(record->*part->speedCode).c_str())
                                : m_value;
        break;
    case FieldKind::Speed:
        value = part->speedCode
                    ? DmtData(static_cast<int>(SpeedCodeToBitRate(record->*part->speedCode)))
                    : m_value;
        break;
    }
    LOG_TRACE("Leave: GetValueforNAPDEF()! \n");
    return DMT_OK;
}

int DM_NAPI_PluginNode::GetValueforPROXY(const DMString &name, const NAP_PROFILE_S *record,
                                         DmtData &value) const
{
    LOG_TRACE("Enter: GetValueforPROXY()! NodeName = %s\n", name.text());
    const DMString parent = GetParentNodeName();
    if (name == "PortNbr") {
        // A slot without a place in the record leaves the caller's value as it is.
        if (const ProxySlot *const slot = FindProxySlot(GetGrandParentNodeName()))
            value = DmtData(static_cast<int>(record->*slot->port));
    } else if (name == "UserEditable") {
        value = DmtData((record->flags & NAPI_FLAG_NOT_EDITABLE) == 0);
    } else if (name == "Addr") {
        if (const ProxySlot *const slot = FindProxySlot(parent)) {
            value = TextValue(*record, FieldBytes(record, slot->address));
        } else if (parent == SLOT_WITHOUT_RECORD) {
            value = DmtData("");
        } else {
            LOG_FAILURE("Leave: GetValueforPROXY() fail, The node %s is not supported\n",
                        name.text());
            return DMT_FAILED;
        }
    }
    LOG_TRACE("Leave: GetValueforPROXY()! \n");
    return DMT_OK;
}

// ---- Writing a value ----------------------------------------------------------------------------

int DM_NAPI_PluginNode::SetValue(const DmtData &value) noexcept
{
    LOG_TRACE("Enter: SetValue()!\n");
    if (!IsLeaf()) {
        const int status = DmtRWPluginNode::SetValue(value);
        if (status == DMT_OK)
            LOG_TRACE("Leave: SetValue()! You're setting value for interior node!\n");
        else
            LOG_FAILURE("Leave: SetValue()! DmtRWPluginNode::SetValue() failed!\n");
        return status;
    }
    const int status = SetValueInternal(&value);
    if (status != DMT_OK)
        LOG_FAILURE("Leave: SetValue()! SetValueInternal() failed!\n");
    else
        LOG_TRACE("Leave: SetValue()! \n");
    return status;
}

int DM_NAPI_PluginNode::SetValueInternal(const DmtData *value)
{
    DMString name;
    GetNodeName(name);
    LOG_TRACE("Enter: SetValueInternal()! NodeName = %s\n", name.text());
    if (!value) {
        LOG_TRACE("Leave: SetValueInternal()! Not need set value!\n \n");
        return DMT_OK;
    }
    const DMString profileNodeName = GetProfileNodeName();
    const JemSmartPtr<DM_NAPI_PluginTree> tree = OwningTree();
    if (!tree)
        return DMT_COMMAND_FAILED;

    // Both checks hold in either kind, also where the leaf is not a record field.
    if (name == "LineType") {
        DMString lineType;
        if (const int status = value->GetString(lineType)) {
            LOG_FAILURE("Leave: SetValueInternal()! GetString() failed!\n");
            return status;
        }
        if (!IsLineType(lineType)) {
            LOG_FAILURE("Leave: SetValueInternal()! failed! Calltype illegal \n");
            return DMT_FAILED;
        }
    }
    if (name == "Speed") {
        int bitRate = 0;
        if (const int status = value->GetInt(bitRate)) {
            LOG_FAILURE("Leave: SetValueInternal()! GetInt() failed!\n");
            return status;
        }
        if (!IsBitRate(bitRate)) {
            LOG_FAILURE("Leave: SetValueInternal()! failed! Speed illegal \n");
            return DMT_FAILED;
        }
    }

    const bool isBearer = name == "Bearer";
    const bool isConn = name == "Conn";
    if (!IsFieldInRecord(name, tree->IsNAPDEF()) && !isBearer && !isConn) {
        LOG_TRACE("Leave: SetValueInternal()! update node not in NAP_PROFILE_S,Not need to update "
                  "profile in db!\n");
        return DmtRWPluginNode::SetValue(*value);
    }
    DMString profileName;
    if (const int status = tree->GetProfileName(profileNodeName, profileName)) {
        LOG_FAILURE("Leave: SetValueInternal()! GetProfileName() failed!\n");
        return status;
    }
    // Read for "Conn" too: a reference is not taken for a profile that cannot be read.
    NAP_PROFILE_S record{};
    if (const int result = NAPI_ReadProfile(profileName.text(), &record, 0, 0)) {
        LOG_FAILURE("Leave: SetValueInternal()! NAPI_ReadProfile() failed! return %d\n", result);
        return DMT_FAILED;
    }
    LOG_TRACE("NAPI_ReadProfile: profilename = %s\n", profileName.text());
    if (isBearer)
        return SetBearer(*tree, profileNodeName, profileName, &record, *value);
    if (isConn)
        return SetConn(*tree, profileNodeName, *value);

    const int status = tree->IsNAPDEF() ? SetValueforNAPDEF(name, &record, *value)
                                        : SetValueforPROXY(name, &record, *value);
    if (status != DMT_OK) {
        LOG_FAILURE("Leave: SetValueInternal()! SetValueforNAPDEF or SetValueforPROXY() failed!\n");
        return status;
    }
    if (const int result = NAPI_ModifyProfile(profileName.text(), &record, 0, 0)) {
        LOG_FAILURE("Leave: SetValueInternal()! NAPI_ModifyProfile() failed! return %d\n", result);
        return DMT_FAILED;
    }
    // The node's own copy is left alone: reads go to the record.
    LOG_TRACE("Leave: SetValueInternal()! \n");
    return DMT_OK;
}

int DM_NAPI_PluginNode::SetBearer(DM_NAPI_PluginTree &tree, const DMString &profileNodeName,
                                  const DMString &profileName, NAP_PROFILE_S *record,
                                  const DmtData &value)
{
    DMString oldBearer;
    DMString newBearer;
    int status = m_value.GetString(oldBearer);
    if (status == DMT_OK)
        status = value.GetString(newBearer);
    if (status != DMT_OK) {
        LOG_FAILURE("Leave: SetValueInternal()! GetString() failed!\n");
        return status;
    }
    // The first bearer of a leaf is taken as it comes: the mapping below refuses an unknown one.
    if (!oldBearer.empty() && !FindBearer(newBearer)) {
        LOG_FAILURE("Leave: SetValueInternal()! failed! Bearer illegal \n");
        return DMT_FAILED;
    }
    if (!oldBearer.empty() || newBearer != DEFAULT_BEARER)
        MoveFieldInNAPI(record, oldBearer, newBearer);
    status = tree.RenameProfileMapDB(profileNodeName, newBearer);
    if (status != DMT_OK) {
        LOG_FAILURE("Leave: SetValueInternal()! RenameProfileMapDB() failed!\n");
        return status;
    }
    if (const int result = NAPI_ModifyProfile(profileName.text(), record, 0, 0)) {
        LOG_FAILURE("Leave: SetValueInternal()! NAPI_ModifyProfile() failed! return %d\n", result);
        return DMT_FAILED;
    }
    LOG_TRACE("Leave: SetValueInternal()! set value for Bearer!\n");
    return DmtRWPluginNode::SetValue(value);
}

int DM_NAPI_PluginNode::SetConn(DM_NAPI_PluginTree &tree, const DMString &profileNodeName,
                                const DmtData &value)
{
    DMString connValue;
    if (const int status = value.GetString(connValue)) {
        LOG_FAILURE("Leave: SetValueInternal()! GetString() failed!\n");
        return status;
    }
    if (const int status = tree.SetConnValue(profileNodeName, GetParentNodeName(), connValue)) {
        LOG_FAILURE("Leave: SetValueInternal()! SetConnValue() failed!\n");
        return status;
    }
    return DmtRWPluginNode::SetValue(value);
}

int DM_NAPI_PluginNode::SetValueforNAPDEF(const DMString &name, NAP_PROFILE_S *record,
                                          const DmtData &value) const
{
    LOG_TRACE("Enter: SetValueforNAPDEF()! NodeName = %s\n", name.text());
    const NapdefLeaf *const field = FindNapdefLeaf(name);
    const bool isNumber =
        field && (field->kind == FieldKind::Speed || field->kind == FieldKind::Linger);
    int number = 0;
    DMString text;
    const int status = isNumber ? value.GetInt(number) : value.GetString(text);
    if (isNumber)
        LOG_TRACE("... Want to set new value = %d\n", number);
    else
        LOG_TRACE("... Want to set new value = %s\n", text.text());
    if (status != DMT_OK) {
        LOG_FAILURE("Leave: SetValueforNAPDEF()! GetInt() ,GetBoolean or GetString() failed!\n");
        return status;
    }
    const JemSmartPtr<DM_NAPI_PluginTree> tree = OwningTree();
    if (!tree)
        return DMT_COMMAND_FAILED;
    DMString fullPath;
    const BearerLeaf leaf(*tree, ProfileNodeName(tree.get(), fullPath));
    if (!leaf.usable)
        LOG_FAILURE("Leave: SetValueforNAPDEF! Get Bearer value failed, sBearerNodePath = %s!\n",
                    leaf.path.text());
    LOG_TRACE("Bearer = %s\n", leaf.bearer.text());
    const BearerPart *const part = FindBearer(leaf.bearer);
    if (!part) {
        LOG_FAILURE("Leave: SetValueforNAPDEF()! Invalid Bearer type: %s\n", leaf.bearer.text());
        return DMT_FAILED;
    }
    if (!field) {
        LOG_FAILURE("Leave: SetValueforNAPDEF()! The node %s is not supported!\n", name.text());
        return DMT_FAILED;
    }
    switch (field->kind) {
    case FieldKind::Text:
        StoreText(record, part->*field->text, text);
        break;
    case FieldKind::Dns:
        // A text that is not an address changes nothing and is not a failure.
        if (const std::optional<std::uint32_t> address = ParseDottedQuad(text.text()))
            record->*(part->*field->dns) = *address;
        break;
    case FieldKind::Linger:
        record->*part->linger = static_cast<std::uint16_t>(number);
        break;
    case FieldKind::LineType:
        // Packet data has no line: there is nothing to store, which is not a failure.
        if (part->speedCode) {
            std::uint8_t &code = record->*part->speedCode;
            code = LineTypeToSpeedCode(text, SpeedCodeToBitRate(code));
        }
        break;
    case FieldKind::Speed:
        if (part->speedCode) {
            std::uint8_t &code = record->*part->speedCode;
            code =
                LineTypeToSpeedCode(SpeedCodeToLineType(code), static_cast<unsigned int>(number));
        }
        break;
    }
    LOG_TRACE("Leave: SetValueforNAPDEF()! \n");
    return DMT_OK;
}

int DM_NAPI_PluginNode::SetValueforPROXY(const DMString &name, NAP_PROFILE_S *record,
                                         const DmtData &value) const
{
    LOG_TRACE("Enter: SetValueforPROXY()! NodeName = %s\n", name.text());
    const bool isPort = name == "PortNbr";
    const bool isEditable = name == "UserEditable";
    int port = 0;
    bool editable = true;
    DMString text("");
    int status = DMT_OK;
    if (isPort) {
        status = value.GetInt(port);
        LOG_TRACE("... Want to set new value = %d, GetString = %s\n", port, text.text());
    } else if (isEditable) {
        status = value.GetBoolean(editable);
        LOG_TRACE("... Want to set new value = %d\n", editable);
    } else {
        status = value.GetString(text);
        LOG_TRACE("... Want to set new value = %s\n", text.text());
    }
    // A value of another type counts as the default of the leaf.
    if (status != DMT_OK)
        LOG_TRACE("Leave: SetValueforPROXY()! GetInt() or GetString() failed!\n");

    if (isPort) {
        if (const ProxySlot *const slot = FindProxySlot(GetGrandParentNodeName()))
            record->*slot->port = static_cast<std::uint16_t>(port);
    } else if (isEditable) {
        if (editable)
            record->flags &= ~NAPI_FLAG_NOT_EDITABLE;
        else
            record->flags |= NAPI_FLAG_NOT_EDITABLE;
    } else if (name == "Addr") {
        if (const ProxySlot *const slot = FindProxySlot(GetParentNodeName()))
            StoreText(record, slot->address, text);
    } else {
        LOG_FAILURE("Leave: SetValueforPROXY() fail! The node %s is not supported!\n", name.text());
        return DMT_FAILED;
    }
    LOG_TRACE("Leave: SetValueforPROXY()! \n");
    return DMT_OK;
}

// ---- Moving a profile to another bearer ---------------------------------------------------------

namespace {

// A text is cut to what the smallest part holds, in every direction.
constexpr std::size_t MOVED_ADDRESS_LIMIT = sizeof(NAP_PROFILE_S::csdAddress);
constexpr std::size_t MOVED_AUTH_LIMIT = sizeof(NAP_PROFILE_S::csdAuthId);

/// Copies a text of at most limit bytes; all else of the field is zero afterwards.
void CopyText(NAP_PROFILE_S *record, const TextField &from, const TextField &to, std::size_t limit)
{
    const char *const source = FieldBytes(record, from);
    ClearField(record, to);
    std::memcpy(FieldBytes(record, to), source, strnlen(source, limit));
}

/// Copies every setting that both parts have; a speed code that only the target has becomes 0.
void CopyBearerPart(NAP_PROFILE_S *record, const BearerPart &from, const BearerPart &to)
{
    CopyText(record, from.address, to.address, MOVED_ADDRESS_LIMIT);
    CopyText(record, from.authId, to.authId, MOVED_AUTH_LIMIT);
    CopyText(record, from.authPassword, to.authPassword, MOVED_AUTH_LIMIT);
    record->*to.dns1 = record->*from.dns1;
    record->*to.dns2 = record->*from.dns2;
    record->*to.linger = record->*from.linger;
    if (to.speedCode)
        record->*to.speedCode = from.speedCode ? record->*from.speedCode : std::uint8_t{0};
}

} // namespace

void DM_NAPI_PluginNode::MoveFieldInNAPI(NAP_PROFILE_S *record, const DMString &fromBearer,
                                         const DMString &toBearer)
{
    LOG_TRACE("Enter: MoveFieldInNAPI()!\n");
    const bool fromDefault = fromBearer.empty();
    const BearerPart *const from = FindBearer(fromDefault ? DMString(DEFAULT_BEARER) : fromBearer);
    const BearerPart *const to = FindBearer(toBearer);
    if (from && to && from != to) {
        const std::uint32_t dns1 = record->*from->dns1;
        const std::uint32_t dns2 = record->*from->dns2;
        CopyBearerPart(record, *from, *to);
        ClearBearerPart(record, *from);
        // A profile that never had a bearer keeps its name servers when it moves to the second set.
        if (fromDefault && toBearer == CSD2_BEARER) {
            record->*from->dns1 = dns1;
            record->*from->dns2 = dns2;
        }
    }
    LOG_TRACE("Leave: MoveFieldInNAPI()! \n");
}

// ---- The overrides are complete -----------------------------------------------------------------

static_assert(std::is_same_v<decltype(&DM_NAPI_PluginNode::GetValue),
                             int (DM_NAPI_PluginNode::*)(DmtData &) noexcept>);
static_assert(std::is_same_v<decltype(&DM_NAPI_PluginNode::SetValue),
                             int (DM_NAPI_PluginNode::*)(const DmtData &) noexcept>);
static_assert(std::is_same_v<decltype(&DM_NAPI_PluginNode::GetName),
                             DMString (DM_NAPI_PluginNode::*)() const noexcept>);
static_assert(std::is_same_v<decltype(&DM_NAPI_PluginNode::HasChunkedValue),
                             std::uint8_t (DM_NAPI_PluginNode::*)() const noexcept>);
static_assert(sizeof(DM_NAPI_PluginNode) == sizeof(DmtRWPluginNode));
