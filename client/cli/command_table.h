// The commands of dmclient: one table drives dispatch, help, the manual and completion.
#pragma once

#include "command.h"
#include "dm_device.h"
#include "output.h"
#include "second_look.h"
#include "secret_input.h"

#include <QByteArray>
#include <memory>
#include <optional>

namespace client::cli {

using commandline::ExitStatus;
using commandline::Invocation;
using commandline::Output;

class Recording;

/// What a command works with.
struct Context {
    DmDevice *device = nullptr;     ///< null for commands that need none
    Recording *recording = nullptr; ///< null when nothing is recorded
    Output &output;
    const Invocation &invocation;
    SecondLook *secondLook = nullptr; ///< null for commands that change nothing
    bool inShell = false;
    bool leaveShell = false; ///< set by the command that ends the shell
    /// That a session has begun for itself; it ends with the command, whose status it has.
    std::shared_ptr<Recording> sessionRecording = {};
    std::optional<QByteArray> value = {}; ///< that the command writes or has read, for the record

    QString commandName() const { return QString::fromLatin1(invocation.command->name); }
    commandline::StandardInput standardInput() const
    {
        return inShell ? commandline::StandardInput::Commands : commandline::StandardInput::Unused;
    }
};

/// What of the management tree an argument names, as completion needs to know it.
enum class NodeArgument {
    None,
    Uri,          ///< of a node
    UriToList,    ///< of a node, with everything beneath it
    UriToRead,    ///< of a node or a property
    UriToReplace, ///< the same
    ChildValue
};

/// What of the device a command works with. The tree needs the plug-in.
enum class Needs { Nothing, Accounts, Tree };

struct CommandRow : commandline::Command {
    Needs needs;
    ExitStatus (*run)(Context &);
    NodeArgument firstNode = NodeArgument::None;
    NodeArgument otherNodes = NodeArgument::None;
    /// Does it on a command line without the device, or has somebody do it who has that; none: it
    /// takes the device.
    std::optional<ExitStatus> (*runElsewhere)(Context &) = nullptr;

    /// Whether it may change the tree.
    bool isChanging() const;
};

/// The option that makes a difference an exit status of its own.
inline constexpr char strictOption[] = "strict";

/// dmclient on a command line.
const commandline::Program &program();
/// The commands of its shell.
const commandline::Program &shellProgram();

/// The row of a command of dmclient's own, which every command of its programs is but help.
const CommandRow &rowOf(const commandline::Command &command);

/// The device that the options choose.
DmDevice::Options deviceOptions(const Invocation &invocation);

/// Carries out a command, and keeps what it has changed of the device.
ExitStatus runAndKeep(Context &context);

/// Carries out a command on the device that the options choose.
ExitStatus execute(Output &output, const Invocation &invocation);

} // namespace client::cli
