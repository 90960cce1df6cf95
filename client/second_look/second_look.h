// Whether what was changed is what the tree says afterwards.
#pragma once

#include "dm_device.h"
#include "look_observer.h"

#include <QProcess>
#include <QString>
#include <chrono>
#include <optional>
#include <vector>

namespace client {

/// Follows the changes of a device's tree and has a process look at them on a copy of the state,
/// while nobody waits for an answer. Whatever goes wrong with that changes nothing of the device.
class SecondLook final : public ChangeObserver {
public:
    /// @param device  has to outlive the object; its tree is made
    /// @param patience  for how long an answer of the process is waited for; only guards against
    /// one
    ///                  that hangs
    explicit SecondLook(DmDevice &device,
                        std::chrono::milliseconds patience = std::chrono::minutes(1));
    ~SecondLook() override;
    SecondLook(const SecondLook &) = delete;
    SecondLook &operator=(const SecondLook &) = delete;

    /// Copies the state, when the node is one that a mount makes: the others stay what they are.
    /// Whoever knows what will be changed says so before the first mount, so that the process
    /// mounts its copy in the meantime.
    void beforeChange(const NodeUri &node) override;

    /// Has everything that is seen told to the observer, which outlives the object or is taken away
    /// with null.
    void setObserver(LookObserver *observer) { m_observer = observer; }

    /// What the tree says now of the changes since the last look. Nothing where that cannot be told
    /// before the next mount.
    std::vector<DifferenceNote> lookNow();
    /// What the next mount will say of all changes. The last look.
    std::vector<DifferenceNote> lookAtNextMount();
    /// That there was no second look, or none to its end, and why: "no second look: its process has
    /// ended". Empty when there was, and when nothing was changed. Told once, and to the observer
    /// as well.
    QString takeFailure();

    /// What all changes of a run may take, so that a server which goes on and on fills neither this
    /// process nor the other: their texts, and bytesOfChange for each.
    static constexpr qsizetype bytesOfAllChanges = 64 * 1024 * 1024;
    static constexpr qsizetype bytesOfChange = 4096;

    /// How many notes there were.
    std::size_t differences() const { return m_differences; }

    const std::vector<TreeChange> &changes() const { return m_changes; }

    void changed(const TreeChange &change) override;

private:
    support::Expected<void, QString> copyState();
    support::Expected<void, QString> begin();
    support::Expected<void, QString> setUp(bool isMounted);
    support::Expected<QByteArray, QString> ask(const QByteArray &frame);
    support::Expected<QByteArray, QString> read(qsizetype bytes);
    support::Expected<void, QString> lookAt(const std::vector<TreeChange> &changes);
    support::Expected<void, QString> lookAtTree();
    void tellOfNextMount(const NextMount &looks);
    void count(const std::vector<DifferenceNote> &notes);
    int patience() const { return static_cast<int>(m_patience.count()); }
    void fail(const QString &reason);
    void end();

    DmDevice &m_device;
    const std::chrono::milliseconds m_patience;
    QProcess m_process;
    QString m_folder;
    LookObserver *m_observer = nullptr;
    bool m_isPrepared = false;
    bool m_isSetUp = false;
    bool m_isOver = false;
    bool m_hasChanged = false;
    QString m_failure;
    std::vector<TreeChange> m_changes;
    std::vector<int> m_commands; ///< that the changes belong to
    qsizetype m_room = bytesOfAllChanges;
    std::vector<SeenChange> m_seen;
    std::optional<Picture> m_tree; ///< as it is after what was seen, when all of it is looked at
    std::size_t m_differences = 0;
    QByteArray m_received;
};

/// "Replace", "Rename" and so on.
QString commandName(const TreeChange &change);
/// What the change was about, as a person would type it.
QString addressOf(const TreeChange &change);

} // namespace client
