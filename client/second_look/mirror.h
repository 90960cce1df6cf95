// A device on a copy of the state, where changes are made once more and looked at.
#pragma once

#include "dm_device.h"
#include "picture.h"
#include "tree_change.h"

#include <memory>

namespace client {

/// A value that was asked for, and what became of it.
struct AskedValue {
    NodeUri leaf;
    QByteArray value;              ///< as valueText would have it
    std::optional<SeenNode> reads; ///< none when the leaf is not there

    bool operator==(const AskedValue &) const = default;
};

/// What a change has done to the tree.
struct SeenChange {
    DmStatus status = DmStatus::Ok;
    std::vector<AskedValue> asked; ///< of a change that ended well
    TreeDifference difference;     ///< of what the change is about
    QString overwritten = {}; ///< settings of the profile that the tree does not show, and that are
                              ///< gone now: a part of a sentence; empty when there are none
};

/// What the changes were about, now and at the next mount.
struct NextMount {
    Picture now;
    Picture next;
};

class Mirror final : private DeviceObserver {
public:
    explicit Mirror(DmDevice::Options options) : m_options(std::move(options)) {}
    ~Mirror();
    Mirror(const Mirror &) = delete;
    Mirror &operator=(const Mirror &) = delete;

    /// Opens the copy.
    support::Expected<void, QString> open();
    /// Mounts the profiles.
    void mount();
    /// The whole tree, which from then on is looked at as a whole at the next mount as well; none
    /// when it has more nodes than that.
    std::optional<Picture> wholeTree(std::size_t mostNodes);
    /// Makes the change, and looks at what it is about.
    SeenChange apply(const TreeChange &change);
    /// Opens and mounts the copy again, or for the first time, and looks at what the changes were
    /// about.
    support::Expected<NextMount, QString> mountAgain(const std::vector<TreeChange> &changes);

private:
    struct RecordChange {
        NAP_PROFILE_S before;
        NAP_PROFILE_S after;
    };

    void profileCall(const call_observer::ProfileCall &call) override;
    // The rest is not looked at.
    void settingCall(const call_observer::SettingCall &) override {}
    void mountBegins(const QByteArray &) override {}
    void mountEnded(int, const QString &) override {}
    void pluginMessage(std::string_view) override {}
    void pluginTrace(std::string_view) override {}
    void secretIsWritten(const QByteArray &) override {}

    /// What all of them are about. Roots that none of them is beneath need no mount for it.
    std::vector<NodeUri> objectsOf(const std::vector<TreeChange> &changes) const;
    Picture look(const std::vector<NodeUri> &objects);
    Outcome carryOut(const TreeChange &change);
    std::vector<AskedValue> askedBy(const TreeChange &change, const Picture &after) const;

    const DmDevice::Options m_options;
    std::unique_ptr<DmDevice> m_device;
    bool m_isWhole = false;
    PropertyStore m_atBeginOfAtomic;
    std::optional<RecordChange> m_record; ///< of the profile that the change wrote to
};

/// The objects that a change is about; of a node that is renamed under both names.
std::vector<NodeUri> objectsOf(const ManagementTree &tree, const TreeChange &change);
/// The same, and of profiles their nodes beneath both roots.
std::vector<NodeUri> withTwins(const std::vector<NodeUri> &objects);

} // namespace client
