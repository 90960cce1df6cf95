// Operations that a server was told will end later, and the results that it was not told yet.
#pragma once

#include "dm_status.h"
#include "expected.h"
#include "private_file.h"

#include <QByteArray>
#include <QString>
#include <set>
#include <vector>

namespace client {

/// Its name in the client's folder of a state directory.
inline constexpr char lateOperationsFile[] = "late-operations.json";

/// One Exec that was answered 202.
struct LateOperation {
    enum class Stage {
        Accepted, ///< not begun yet
        Begun,    ///< runs, or was broken off with the process that ran it
        Ended,    ///< its result waits for the server
    };

    int id = 0;               ///< no other one in the file has it; from 1
    QString account;          ///< whose server wants it
    QByteArray serverId;      ///< Server Identifier that the account had
    QString sessionId;        ///< in which it was asked for
    QString target;           ///< URI of the node, each in one spelling
    QString correlator;       ///< by which the server knows the result
    QString alertType;        ///< Meta Type of the result's alert
    QByteArray argument = {}; ///< for the node; gone when it has ended
    Stage stage = Stage::Accepted;
    DmStatus status = DmStatus::Ok; ///< of one that has ended
    bool wasBrokenOff = false;      ///< nobody knows how much of it was done

    bool operator==(const LateOperation &) const = default;
};

/// The operations of a device in a file that only its owner can read. Each change is on the disk
/// when it returns; when it fails, the file and the object are as before, and the error is a
/// sentence that names the file and the reason. Whoever changes it holds the lock of the state
/// directory.
class LateOperations {
public:
    static constexpr std::size_t most = 64;
    static constexpr std::size_t mostPerAccount = 8;
    static constexpr qsizetype longestCorrelator = 255; ///< characters
    static constexpr qsizetype longestTarget = 2048;    ///< characters
    static constexpr qsizetype longestArgument = 16 * 1024;

    using Change = support::Expected<void, QString>;

    /// Reads a file; a missing one has no operations. Fails for one that is damaged, which is never
    /// written then.
    static support::Expected<LateOperations, QString> load(const QString &path);

    const std::vector<LateOperation> &all() const { return m_operations; }
    /// Those of an account that have begun or ended, by their ids.
    std::set<int> begunOf(const QString &account) const;

    /// Whether nothing on the node has still to run or to end; 403 if something has.
    Outcome checkIdle(const QString &target) const;
    /// Keeps an operation, which gets an id.
    /// @return 202, or why it is not kept: 403 while one on the node is still to run, 413 for one
    ///         that is too large, 500 when too many are kept or the file cannot be written
    Outcome accept(LateOperation operation);
    Change begin(int id);
    Change end(int id, DmStatus status);
    /// Forgets those whose results a server has taken.
    Change forget(const std::set<int> &ids);
    /// Ends those that have begun, since nobody runs them any more. They are not run again.
    Change breakOffBegun();
    /// Forgets those of accounts that are gone, or of another server than they were.
    template <class IsOf>
    Change keepOnly(IsOf &&isOfAccount)
    {
        std::vector<LateOperation> kept;
        for (const LateOperation &operation : m_operations)
            if (isOfAccount(operation))
                kept.push_back(operation);
        return replaceBy(std::move(kept));
    }

private:
    /// In bytes; what the limits above come to as JSON, several times.
    static constexpr qsizetype largestFile = 4 * 1024 * 1024;

    explicit LateOperations(const QString &path) : m_file(path, largestFile) {}

    template <class Edit>
    Change change(int id, Edit &&edit);
    Change replaceBy(std::vector<LateOperation> operations);

    support::PrivateFile m_file;
    std::vector<LateOperation> m_operations;
    int m_lastId = 0;
};

} // namespace client
