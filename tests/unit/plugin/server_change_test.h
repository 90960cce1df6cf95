// Fixture of the tests of what a server changes: a mounted tree, and records looked at byte by
// byte.
#pragma once

#include "plugin_test.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace doubles {

inline constexpr std::size_t RECORD_SIZE = 1168;
using RecordBytes = std::array<std::uint8_t, RECORD_SIZE>;

/// Two records without a zero byte. No two positions hold the same pair of bytes, so a byte that
/// comes from a wrong place differs from the expected one in at least one of the two.
inline RecordBytes PatternBytes(int which)
{
    RecordBytes bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(1 + (which == 0 ? i % 255 : (i * 7 + 11) % 253));
    return bytes;
}

inline NAP_PROFILE_S ToRecord(const RecordBytes &bytes)
{
    NAP_PROFILE_S record;
    static_assert(sizeof record == RECORD_SIZE);
    std::memcpy(&record, bytes.data(), bytes.size());
    return record;
}

inline RecordBytes ToBytes(const NAP_PROFILE_S &record)
{
    RecordBytes bytes;
    std::memcpy(bytes.data(), &record, bytes.size());
    return bytes;
}

inline void Zero(RecordBytes &bytes, std::size_t offset, std::size_t width)
{
    std::memset(bytes.data() + offset, 0, width);
}

/// Zeroes the array and puts as much of the text into it as it takes.
inline void PutText(RecordBytes &bytes, std::size_t offset, std::size_t width,
                    const std::string &text)
{
    Zero(bytes, offset, width);
    std::memcpy(bytes.data() + offset, text.data(), std::min(text.size(), width));
}

/// Stores a number in little-endian order.
inline void PutNumber(RecordBytes &bytes, std::size_t offset, std::size_t width,
                      std::uint32_t number)
{
    for (std::size_t i = 0; i < width; ++i)
        bytes[offset + i] = static_cast<std::uint8_t>(number >> (8 * i));
}

/// Names the first bytes that differ instead of printing both records.
inline ::testing::AssertionResult SameBytes(const RecordBytes &actual, const RecordBytes &expected)
{
    ::testing::AssertionResult result = ::testing::AssertionFailure();
    int differences = 0;
    for (std::size_t i = 0; i < RECORD_SIZE; ++i) {
        if (actual[i] == expected[i])
            continue;
        char line[64];
        std::snprintf(line, sizeof line, "0x%03zX is 0x%02X, expected 0x%02X\n", i, actual[i],
                      expected[i]);
        if (++differences <= 10)
            result << line;
    }
    if (differences == 0)
        return ::testing::AssertionSuccess();
    return result << differences << " bytes differ";
}

inline ::testing::AssertionResult SameBytes(const NAP_PROFILE_S &actual,
                                            const RecordBytes &expected)
{
    return SameBytes(ToBytes(actual), expected);
}

/// A bearer with the places of its part in the record, as the service publishes them.
struct PartOffsets {
    const char *bearer;
    const char *suffix;
    std::size_t address, addressSize;
    std::size_t authId, authPassword, authSize;
    std::size_t dns1, dns2, linger;
    std::size_t speedCode; ///< 0: the part has none
};

inline void PrintTo(const PartOffsets &part, std::ostream *out)
{
    *out << part.bearer;
}

inline constexpr PartOffsets GPRS_PART = {"GSM-GPRS", "Ph1DC1", 0x008, 100,   0x06C, 0x0D0,
                                          100,        0x138,    0x13C, 0x140, 0};
inline constexpr PartOffsets CSD_PART = {"GSM-CSD", "Ph2DC1", 0x17D, 44,    0x1A9, 0x1E9,
                                         64,        0x230,    0x234, 0x238, 0x23B};
inline constexpr PartOffsets CSD2_PART = {"GSM-CSD2", "Ph3DC1", 0x23C, 44,    0x268, 0x2A8,
                                          64,         0x2EC,    0x2F0, 0x2F4, 0x2F7};
inline constexpr PartOffsets ALL_PARTS[] = {GPRS_PART, CSD_PART, CSD2_PART};

/// Zeroes what the part holds.
inline void ZeroPart(RecordBytes &bytes, const PartOffsets &part)
{
    Zero(bytes, part.address, part.addressSize);
    Zero(bytes, part.authId, part.authSize);
    Zero(bytes, part.authPassword, part.authSize);
    Zero(bytes, part.dns1, 4);
    Zero(bytes, part.dns2, 4);
    Zero(bytes, part.linger, 2);
    if (part.speedCode != 0)
        Zero(bytes, part.speedCode, 1);
}

inline DmtData Text(const std::string &text)
{
    return DmtData(text.c_str());
}
inline DmtData Number(int number)
{
    return DmtData(number);
}

class ServerChangeTest : public PluginTest {
protected:
    /// Stores profile "Office" (ID 5) and mounts the root; the profile service, not the plug-in, is
    /// given a record of these bytes afterwards.
    TreePtr MountOffice(const char *root, const PartOffsets &part, const RecordBytes &bytes = {})
    {
        RecordBytes mounted{};
        mounted[part.address] = 'a';
        handset.napi.Store("Office", ToRecord(mounted), 5);
        TreePtr tree = LoadTree(root);
        Stored() = ToRecord(bytes);
        return tree;
    }
    TreePtr MountOffice(const char *root) { return MountOffice(root, GPRS_PART); }

    /// Record of "Office" in the profile service.
    NAP_PROFILE_S &Stored()
    {
        static NAP_PROFILE_S none;
        if (auto *const office = handset.napi.Find("Office"))
            return office->record;
        ADD_FAILURE() << "Office is not stored any more";
        return none = {};
    }

    /// A server's Replace of a leaf, by slot 8 of the node.
    int Write(const TreePtr &tree, const std::string &path, const DmtData &value)
    {
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        EXPECT_TRUE(node) << path;
        return node ? node->SetValue(value) : -1;
    }

    /// The value that the engine keeps in the node, whatever the plug-in answers for it.
    DmtData EngineValue(const TreePtr &tree, const std::string &path)
    {
        DmtData value;
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        EXPECT_TRUE(node) << path;
        if (node)
            static_cast<DmtPluginNode *>(node.get())->DmtPluginNode::GetValue(value);
        return value;
    }

    /// Changes the value that the engine keeps, past the plug-in.
    void SetEngineValue(const TreePtr &tree, const std::string &path, const DmtData &value)
    {
        const JemSmartPtr<DmtNode> node = Node(tree, path);
        ASSERT_TRUE(node) << path;
        static_cast<DmtRWPluginNode *>(node.get())->DmtRWPluginNode::SetValue(value);
        handset.journal.Clear();
    }

    /// Registers a leaf past the plug-in.
    void PutLeaf(const TreePtr &tree, const std::string &path, const DmtData &value)
    {
        tree->SetNode(path.c_str(), NewLeaf(tree, path, value));
        handset.journal.Clear();
    }

    static JemSmartPtr<DmtNode> NewLeaf(const TreePtr &tree, const std::string &path,
                                        const DmtData &value)
    {
        return JemSmartPtr<DmtNode>(
            new DM_NAPI_PluginNode(JemSmartPtr<DmtPluginTree>(tree), path.c_str(), value));
    }

    /// Removes a node and what is beneath it, past the plug-in.
    void DropNode(const TreePtr &tree, const std::string &path)
    {
        EXPECT_EQ(tree->DmtRWPluginTree::DeleteNode(path.c_str()), 0) << path;
        handset.journal.Clear();
    }

    /// Closes the mapping file, so that the tree has none.
    void CloseMappingFile(const TreePtr &tree)
    {
        PluginTreeProbe probe(*tree);
        probe.settings.reset();
        handset.journal.Clear();
    }

    bool Exists(const TreePtr &tree, const std::string &path)
    {
        return static_cast<bool>(Node(tree, path));
    }

    Mapping Mapped(const TreePtr &tree) { return PluginTreeProbe(*tree).Mapped(); }

    Entries NapdefOnDisk() { return handset.settings.OnDisk(NAPDEF_FILE, NAPDEF_GROUP); }
    Entries ProxyOnDisk() { return handset.settings.OnDisk(PROXY_FILE, PROXY_GROUP); }
    Entries ReferencesOnDisk() { return handset.settings.OnDisk(PROXY_FILE, CONN_GROUP); }

    /// As ExpectLogged, with the messages of the tree and the node told apart by their first
    /// letter: "T ..." and "N ...".
    void ExpectMessages(const Lines &expected)
    {
        Lines messages;
        for (const std::string &message : expected)
            messages.push_back(message[0] == 'T' ? TreeMessage(message.substr(2))
                                                 : NodeMessage(message.substr(2)));
        ExpectLogged(messages);
    }
};

} // namespace doubles
