// edit: a profile as a text, in the user's editor.
#include "commands.h"

#include <QFile>
#include <QTemporaryDir>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include "file_descriptor.h"
#include "file_profile.h"
#include "line_input.h"
#include "profile_service.h"
#include "terminal.h"

namespace {

using support::LineInput;

/// Nothing, or what is wrong.
using Check = support::Expected<void, QString>;

constexpr char usualEditor[] = "editor"; // what Debian calls the one that is chosen

/// Removes the text of a program that is killed, once the editor has ended, too. A text that
/// somebody has worked on it leaves, as the program does.
class TextGuard {
public:
    /// @param folder  of the text, with nothing else in it that anybody needs
    /// @return 0, or an errno value
    int start(const QByteArray &folder, const QByteArray &path, const QByteArray &original)
    {
        std::array<int, 2> ends;
        if (::pipe2(ends.data(), O_CLOEXEC) < 0)
            return errno;
        const handset_state::FileDescriptor readingEnd(ends[0]);
        m_end = handset_state::FileDescriptor(ends[1]);

        // A session of its own: no signal to the terminal or to the program's group ends it.
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, readingEnd.get(), STDIN_FILENO);
        for (const int output : {STDOUT_FILENO, STDERR_FILENO})
            posix_spawn_file_actions_addopen(&files, output, "/dev/null", O_WRONLY, 0);
        const std::array<const char *, 7> words{"sh",   "-c", script, "napictl",
                                                folder, path, nullptr};
        const int error = ::posix_spawn(nullptr, "/bin/sh", &files, &attributes,
                                        const_cast<char *const *>(words.data()), environ);
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
        if (error != 0)
            return error;
        // The editor holds this end, too, until it ends.
        const bool isTold = m_end.writeAll({original.data(), std::size_t(original.size())}) &&
                            ::fcntl(m_end.get(), F_SETFD, 0) == 0;
        return isTold ? 0 : errno;
    }

private:
    static constexpr char script[] = R"sh(original=$(cat; echo .)
printf %s "${original%.}" | cmp -s - "$2" || [ ! -e "$2" ] && rm -rf -- "$1")sh";

    /// Of a pipe; the guard begins when everybody has closed it.
    handset_state::FileDescriptor m_end;
};

/// The text that is edited: in a folder that nobody else can enter, gone with the object unless
/// there is something in it that would be lost.
class EditedText {
public:
    Check write(const QByteArray &text)
    {
        QFile file(path());
        if (m_folder.isValid())
            if (const int error = m_guard.start(QFile::encodeName(m_folder.path()),
                                                QFile::encodeName(path()), text);
                error != 0)
                return support::Unexpected(
                    QStringLiteral("cannot guard a text to edit: %1").arg(qt_error_string(error)));
        const bool isWritten = m_folder.isValid() &&
                               file.open(QIODevice::WriteOnly | QIODevice::NewOnly,
                                         QFileDevice::ReadOwner | QFileDevice::WriteOwner) &&
                               file.write(text) == text.size() && file.flush();
        if (isWritten)
            return {};
        return support::Unexpected(
            QStringLiteral("cannot write a text to edit, %1: %2")
                .arg(m_folder.isValid() ? path() : m_folder.path(),
                     m_folder.isValid() ? file.errorString() : m_folder.errorString()));
    }
    QString path() const { return m_folder.filePath(QStringLiteral("profile.json")); }
    /// Keeps a text that somebody has worked on. @return whether there is one
    bool keep(const QByteArray &original)
    {
        const auto text = commandline::readInput(path(), original.size());
        m_folder.setAutoRemove(text && *text == original);
        return !m_folder.autoRemove();
    }

private:
    /// Qt's own choice is the root folder when there is no such folder as TMPDIR names.
    static QString pathPattern()
    {
        const QByteArray folder = qgetenv("TMPDIR");
        return QFile::decodeName(folder.isEmpty() ? QByteArray("/tmp") : folder) +
               QStringLiteral("/napictl-XXXXXX");
    }

    QTemporaryDir m_folder{pathPattern()};
    TextGuard m_guard;
};

/// Runs the editor on a file until it ends. Ctrl-C is the editor's meanwhile.
Check runEditor(const QString &path)
{
    QByteArray editor = qgetenv("VISUAL");
    if (editor.isEmpty())
        editor = qgetenv("EDITOR");
    if (editor.isEmpty())
        editor = usualEditor;
    // The shell splits the editor into words; the path it gets apart from them. It waits for an
    // editor that takes Ctrl-C, as the program does.
    qputenv("NAPICTL_EDITED_FILE", QFile::encodeName(path));
    const int status =
        std::system(("trap : INT QUIT; " + editor + " \"$NAPICTL_EDITED_FILE\"").constData());
    qunsetenv("NAPICTL_EDITED_FILE");
    if (status == 0)
        return {};
    return support::Unexpected(
        QStringLiteral("the editor %1 failed").arg(QString::fromLocal8Bit(editor)));
}

/// Reads the text and stores what it says.
ExitStatus store(Output &output, const EditedText &text, const StoredProfile &before)
{
    const auto profiles = parseFile(text.path(), parseProfiles);
    if (!profiles)
        return output.problem(profiles.error(), ExitStatus::Failed);
    if (profiles->size() != 1)
        return output.problem(QStringLiteral("%1: expected one profile").arg(text.path()),
                              ExitStatus::Failed);
    if (profiles->first().name != before.name)
        return output.problem(
            QStringLiteral("%1: its name is not to be edited; rename changes it").arg(before.name),
            ExitStatus::Failed);
    ExitStatus exitStatus = ExitStatus::Success;
    const auto edited = recordOf(output, profiles->first(), exitStatus);
    if (!edited)
        return exitStatus;
    if (!edited->stored || std::memcmp(&*edited->stored, &before.record, sizeof before.record) != 0)
        return output.problem(
            QStringLiteral("%1: somebody else changed it meanwhile").arg(before.name),
            ExitStatus::Failed);
    if (std::memcmp(&edited->record, &before.record, sizeof before.record) == 0)
        return ExitStatus::Success;
    return reportResult(
        output, before.name,
        NAPI_ModifyProfile(before.name.toUtf8().constData(), &edited->record, 0, 0));
}

/// Whether the person at the terminal wants to go on with a text that was not stored.
bool wantsToEditAgain(Output &output)
{
    if (!commandline::isInteractive())
        return false;
    const LineInput terminal(STDIN_FILENO);
    terminal.flush();
    output.notice(QStringLiteral("Edit it again? [Y/n]"));
    QByteArray answer;
    return terminal.readLine(LineInput::Echo::On, std::nullopt, answer) ==
               LineInput::Result::Line &&
           !answer.toLower().startsWith('n');
}

} // namespace

ExitStatus runEdit(Output &output, const Invocation &invocation)
{
    StoredProfile before;
    const QString &name = invocation.arguments.first();
    if (const int status = readProfile(name, before); status != NAPI_OK)
        return reportResult(output, name, status);
    if (const QStringList faults = recordFaults(before.record); !faults.isEmpty())
        return output.problem(
            QStringLiteral("%1 cannot be edited without loss: %2").arg(name, faults.first()),
            ExitStatus::Failed);
    EditedText text;
    const QByteArray original =
        formatProfile(name, before.record, invocation.has(showSecretsName)) + '\n';
    if (const Check written = text.write(original); !written)
        return output.problem(written.error(), ExitStatus::Unusable);
    ExitStatus exitStatus = ExitStatus::Success;
    do {
        const Check edited = runEditor(text.path());
        exitStatus = edited ? store(output, text, before)
                            : output.problem(edited.error(), ExitStatus::Failed);
    } while (exitStatus != ExitStatus::Success && wantsToEditAgain(output));
    if (exitStatus == ExitStatus::Success)
        return exitStatus;
    return text.keep(original)
               ? output.problem(
                     QStringLiteral("nothing was stored; the text is in %1").arg(text.path()),
                     exitStatus)
               : exitStatus;
}
