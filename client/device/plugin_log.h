// Where the messages of a loaded plug-in go.
#pragma once

#include "expected.h"
#include "plugin_journal.h"

#include <QString>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace client {

/// The stream that plug-ins write their messages to, for as long as the object lives. Without one
/// they would write to standard output, into the middle of the program's own.
///
/// A library that was built for it says traces as well, between marks. They have whole values, so
/// they go neither to the file nor to standard error.
class PluginLog {
public:
    /// Size of the log file at which it is put aside as FILE.1, replacing an older one, in bytes.
    static constexpr long defaultLimitBytes = 1024 * 1024;

    /// Sends the messages to standard error, where nothing in them steers a terminal.
    /// Fails as toFile does.
    static support::Expected<std::unique_ptr<PluginLog>, QString> toStandardError();
    /// Appends the messages to a file, readable by its owner only: they name values that a server
    /// wrote. The file has the bytes of the messages, but that line breaks in one are \n and \r,
    /// under the headings of a PluginJournal. Neither the file nor the one put aside grows past the
    /// limit by more than one message.
    /// @return never null; the error says why the messages cannot go there
    static support::Expected<std::unique_ptr<PluginLog>, QString>
    toFile(const QString &path, long limitBytes = defaultLimitBytes);

    /// Takes one whole message.
    using Writer = std::function<void(std::string_view message)>;
    /// Has every message told to somebody else as well, and every trace to nobody but them; empty
    /// ones end that.
    void setListener(Writer listener, Writer traceListener)
    {
        m_listener = std::move(listener);
        m_traceListener = std::move(traceListener);
    }

    // What the messages are about from now on, as a PluginJournal has it; only a file says so.
    void beginCommand(const QString &name, const QString &address);
    void beginMount(const QString &root);
    void endMount();

    ~PluginLog();
    PluginLog(const PluginLog &) = delete;
    PluginLog &operator=(const PluginLog &) = delete;

private:
    void take(std::string_view bytes);
    void takeMessage(std::string_view message);

    explicit PluginLog(Writer writer) : m_writer(std::move(writer)) {}
    static support::Expected<std::unique_ptr<PluginLog>, QString> open(Writer writer);

    const Writer m_writer;
    Writer m_listener;
    Writer m_traceListener;
    std::optional<std::string> m_trace;       ///< that has begun and not ended
    std::shared_ptr<PluginJournal> m_journal; ///< of a file
    FILE *m_stream = nullptr;
};

} // namespace client
