// Runs DM commands on the management tree.
#pragma once

#include "message.h"
#include "tnds_change.h"
#include "tree_view.h"
#include "undo_log.h"

#include <QVarLengthArray>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace client {

/// One DM command in, its statuses and results out. It knows neither encodings nor sessions.
///
/// Every Status and Results refers to its command by CmdRef; CmdID and MsgRef are left to the
/// message that they become part of.
class CommandProcessor {
public:
    /// @param principal  on whose behalf the commands run
    explicit CommandProcessor(ManagementTree &tree,
                              const Principal &principal = Principal::owner());

    /// Answers an Alert, for which it may talk to the user.
    /// @param items  receives what goes into the Status, such as a text that the user typed
    using AlertHandler =
        std::function<DmStatus(const syncml::Command &alert, std::vector<syncml::Item> &items)>;
    /// Without a handler every Alert is answered with 406.
    void setAlertHandler(AlertHandler handler) { m_alertHandler = std::move(handler); }

    /// Is told of each item before it is run. A command that is run as a whole has an empty one.
    using BeginListener =
        std::function<void(const syncml::Command &command, const syncml::Item &item)>;
    void setBeginListener(BeginListener listener) { m_beginListener = std::move(listener); }

    /// Is told how each item of a command ended, when it ended; for people, who want the reason.
    using OutcomeListener = std::function<void(const syncml::Command &command,
                                               const syncml::Item &item, const Outcome &outcome)>;
    void setOutcomeListener(OutcomeListener listener) { m_outcomeListener = std::move(listener); }

    /// Takes what a server adds to the Inbox. @return the status of the command
    using Inbox = std::function<Outcome(const std::vector<TndsNode> &objects)>;
    /// Without one there is no Inbox: 404.
    void setInbox(Inbox inbox) { m_inbox = std::move(inbox); }

    /// Takes an Exec, which its server may call for, that ends later. @return its status; none for
    /// one that is run at once
    using LateExec = std::function<std::optional<Outcome>(
        const syncml::Command &command, const NodeUri &node, const QByteArray &argument)>;
    /// Without one every Exec is run at once.
    void setLateExec(LateExec lateExec) { m_lateExec = std::move(lateExec); }

    /// Says whether the answers to an Atomic can reach the server.
    using AnswerCheck = std::function<bool(const std::vector<syncml::Command> &answers)>;
    /// Without a check they always can.
    void setAtomicAnswerCheck(AnswerCheck check) { m_atomicAnswerCheck = std::move(check); }

    /// Says whether nothing more is to be run. Asked before every command and every item.
    using EndCheck = std::function<bool()>;
    /// Without a check everything is run.
    void setEndCheck(EndCheck check) { m_endCheck = std::move(check); }

    /// Begins the commands of another message of the server.
    /// @param waitingBytes  of earlier answers that were not sent yet, as answerBytes counts them
    void beginMessage(qsizetype waitingBytes);
    /// Whether nothing more of this message is run: the user has cancelled an alert of it, or the
    /// end has come.
    bool isOver() const { return m_isCancelled || (m_endCheck && m_endCheck()); }

    /// Runs the command and appends what answers it. Items of one command are independent of each
    /// other. When all of them end alike one Status stands for all, otherwise each has its own.
    /// Nothing answers a Status or a Results.
    ///
    /// Results beyond mostAnswerBytes, with what waits and with the answers to the other commands
    /// of the message, are not made: 413. Nor are listings of a message for which more than twice
    /// as much has been read, refused ones included.
    ///
    /// An alert to the user that does not end with 200 stops its Sequence: the rest is 215. When
    /// the user cancels one (214), or the end has come, every command and item of the message that
    /// has not run is 215.
    ///
    /// An Atomic runs until its first failure: that one has its own status, what follows it 215,
    /// and what came before it is taken back: 216 where the tree is as it was, 516 where it is not.
    /// The Atomic itself is answered with 507 then. A Get, and an Atomic, in an Atomic end with
    /// 500.
    ///
    /// An Atomic whose answers cannot reach the server is taken back as well, and answered with
    /// 517: the server could not tell what became of it. Its commands have one Status each then,
    /// without references, as they have in a failed Atomic whose answers cannot reach the server.
    void run(const syncml::Command &command, std::vector<syncml::Command> &answers);

    /// Answers the command, and the commands in it, with a status without running anything.
    static void refuse(const syncml::Command &command, DmStatus status,
                       std::vector<syncml::Command> &answers);

private:
    using ItemOperation = Outcome (CommandProcessor::*)(const syncml::Command &,
                                                        const syncml::Item &);

    /// A command that was run or passed over, and what answers it.
    struct Part {
        const syncml::Command *command;
        DmStatus status = DmStatus::Ok;             ///< of a command without items
        QVarLengthArray<DmStatus, 4> statuses = {}; ///< of the items
        std::vector<syncml::Item> items = {};       ///< that go into the Status
        std::vector<syncml::Item> results = {};     ///< of a Get
        /// In an Atomic: how many notes the undo log had before the command, and after each item
        /// or, without items, after the command.
        std::vector<std::size_t> notes = {};
    };
    using Parts = std::vector<Part>;

    /// Moves what the parts have into answers.
    static void answer(Parts &parts, std::vector<syncml::Command> &answers);
    bool canBeSent(const Parts &parts) const;
    static void pass(const syncml::Command &command, DmStatus status, DmStatus ofInner,
                     Parts &parts);

    // These return whether what follows is to run.
    bool runAll(std::span<const syncml::Command> commands, Parts &parts);
    bool runCommand(const syncml::Command &command, Parts &parts);
    bool runItems(ItemOperation operation, Part &part);
    Outcome runItem(ItemOperation operation, const syncml::Command &command,
                    const syncml::Item &item);
    bool runAlert(Part &part);

    void runAtomic(const syncml::Command &atomic, Parts &parts);
    std::vector<bool> takeBack(UndoLog &undoLog, const syncml::Command &atomic, Outcome &outcome);
    static void shorten(Part &part);
    void noteTakenBack(const std::vector<bool> &isBack, Part &part);
    static ItemOperation operationOf(syncml::CommandKind kind);
    std::optional<Outcome> refusalOf(const syncml::Command &command) const;
    void markNotes(Part &part) const;
    void begin(const syncml::Command &command, const syncml::Item &item);
    void report(const syncml::Command &command, const syncml::Item &item, const Outcome &outcome);

    // One Item of each command.
    Outcome add(const syncml::Command &command, const syncml::Item &item);
    Outcome replace(const syncml::Command &command, const syncml::Item &item);
    /// Adds a serialised tree, or puts it in the place of the target. It is done whole, or as far
    /// as possible taken back.
    using TreeOperation = Outcome (TndsChange::*)(UndoLog &undoLog);
    Outcome changeTree(TreeOperation operation, const NodeUri &target,
                       const TreeView::NewValue &value);
    Outcome addToInbox(const TreeView::NewValue &value);
    Outcome remove(const syncml::Command &command, const syncml::Item &item);
    Outcome copy(const syncml::Command &command, const syncml::Item &item);
    Outcome execute(const syncml::Command &command, const syncml::Item &item);
    Outcome get(const syncml::Command &command, const syncml::Item &item);

    /// What is at the node and beneath it; none when there is no room for it.
    std::optional<std::vector<ListedNode>> list(const TreeNode &node, TreeView::Values values);

    /// Puts the items into m_results, as far as there is room for all of them: 413 otherwise.
    Outcome queue(std::span<syncml::Item> items);
    Outcome queue(syncml::Item item);

    // What one Item of a Get can ask for; the answer goes to m_results.
    Outcome getValue(const TreeNode &node, const QString &uri);
    Outcome getProperty(const TreeNode &node, const QString &name, const QString &uri);
    Outcome getListing(const TreeNode &node, const QString &kind, const QString &uri);
    Outcome getSerialised(const TreeNode &node, const QString &request, const QString &uri);

    /// Notes in the undo log, when there is one, what the tree shows before a change.
    void noteForUndo(const NodeUri &node, const std::optional<NodeUri> &renamedTo = std::nullopt);

    /// The node that a command other than Get works on; 405 for a property or a listing of it.
    Result<NodeUri> wholeNode(const std::optional<syncml::Location> &location) const;

    TreeView m_tree;
    UndoLog *m_undoLog = nullptr; ///< of the Atomic that runs
    AlertHandler m_alertHandler;
    BeginListener m_beginListener;
    OutcomeListener m_outcomeListener;
    AnswerCheck m_atomicAnswerCheck;
    EndCheck m_endCheck;
    Inbox m_inbox;
    LateExec m_lateExec;
    std::vector<syncml::Item> m_results; ///< of the Get that runs
    Parts m_spareParts;                  ///< empty: room for those of the next command
    qsizetype m_room = 0;                ///< bytes of answers that may still be made
    qsizetype m_listingRoom = 0;         ///< bytes that may still be read for listings
    bool m_isCancelled = false;
};

} // namespace client
