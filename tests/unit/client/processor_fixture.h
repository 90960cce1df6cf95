// Commands as a test writes them down, and what answers them as lines.
#pragma once

#include "command_processor.h"
#include "mounted_tree.h"

#include <string>
#include <vector>

namespace client {

syncml::Location location(const QByteArray &uri);
syncml::Item target(const QByteArray &uri, std::optional<QByteArray> data = std::nullopt);
syncml::Item formatted(syncml::Item item, const char *format);
syncml::Command command(syncml::CommandKind kind, std::vector<syncml::Item> items,
                        const char *cmdId = "7");
/// A Sequence or an Atomic.
syncml::Command group(syncml::CommandKind kind, std::vector<syncml::Command> commands,
                      const char *cmdId = "g");

using Lines = std::vector<std::string>;

/// "Status 7 Get 200 <target >source", or "Results 7 [source format type=data]...", one an answer.
Lines summary(const std::vector<syncml::Command> &answers);

class CommandProcessorTest : public MountedTree {
protected:
    std::vector<syncml::Command> answersTo(const syncml::Command &command)
    {
        std::vector<syncml::Command> answers;
        CommandProcessor(managementTree, principal).run(command, answers);
        return answers;
    }
    Lines run(const syncml::Command &command) { return summary(answersTo(command)); }
    /// The status of a command with one item.
    int statusOf(syncml::CommandKind kind, const syncml::Item &item)
    {
        return answersTo(command(kind, {item})).at(0).data->toInt();
    }
    static std::string full(const char *path) { return profileUri(path).toStdString(); }

    Principal principal = Principal::owner();
};

} // namespace client
