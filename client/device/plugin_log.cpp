#include "plugin_log.h"

#include "aplog.h"
#include "foreign_text.h"
#include "private_storage.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace client {

using support::Expected;
using support::Unexpected;

namespace {

// What a plug-in that is built with KUB_LOG_MARKS_TRACES puts around each trace.
constexpr char traceBegin = '\x1e';
constexpr char traceEnd = '\x1f';

Unexpected<QString> cannotLog(const std::string &reason)
{
    return Unexpected(
        QStringLiteral("the plug-in's log: %1").arg(QString::fromLocal8Bit(reason.c_str())));
}

void writeToStandardError(std::string_view message)
{
    const bool hasEnd = message.ends_with('\n');
    message.remove_suffix(hasEnd ? 1 : 0);
    const std::string line = foreign_text::printable(message) + (hasEnd ? "\n" : "");
    std::fwrite(line.data(), 1, line.size(), stderr);
}

/// A file that is put aside when it has reached its limit.
class RotatingFile {
public:
    RotatingFile(std::string path, long limitBytes, handset_state::Refusal &refusal)
        : m_path(std::move(path)), m_limit(limitBytes)
    {
        refusal = open();
    }

    void write(std::string_view line)
    {
        if (m_size >= m_limit)
            rotate();
        const ssize_t written = m_file ? ::write(m_file.get(), line.data(), line.size()) : -1;
        if (written > 0)
            m_size += written;
    }

private:
    handset_state::Refusal open()
    {
        handset_state::Refusal refusal;
        m_file = handset_state::openFile(m_path, O_WRONLY | O_APPEND | O_CREAT, refusal);
        struct stat status {};
        m_size = m_file && ::fstat(m_file.get(), &status) == 0 ? status.st_size : 0;
        return refusal;
    }

    void rotate()
    {
        m_file.close();
        std::rename(m_path.c_str(), (m_path + ".1").c_str());
        open();
    }

    std::string m_path;
    long m_limit;
    handset_state::FileDescriptor m_file;
    long m_size = 0;
};

} // namespace

PluginLog::~PluginLog()
{
    libaplog_to_module_ptr = nullptr;
    if (m_stream)
        std::fclose(m_stream);
}

Expected<std::unique_ptr<PluginLog>, QString> PluginLog::open(Writer writer)
{
    cookie_io_functions_t functions{};
    functions.write = [](void *cookie, const char *bytes, std::size_t size) -> ssize_t {
        static_cast<PluginLog *>(cookie)->take({bytes, size});
        return static_cast<ssize_t>(size);
    };
    std::unique_ptr<PluginLog> log(new PluginLog(std::move(writer)));
    log->m_stream = fopencookie(log.get(), "a", functions);
    if (!log->m_stream)
        return cannotLog(std::strerror(errno));
    // Without a buffer each message, which is one call of the plug-in, arrives as it is. The
    // library cuts those of more than 8 KiB.
    std::setvbuf(log->m_stream, nullptr, _IONBF, 0);
    libaplog_to_module_ptr = log->m_stream;
    return log;
}

/// @param bytes  a message, or a part of one
void PluginLog::take(std::string_view bytes)
{
    if (!bytes.empty() && bytes.front() == traceBegin)
        m_trace.emplace();
    if (!m_trace)
        return takeMessage(bytes);
    m_trace->append(bytes);
    if (!m_trace->ends_with(traceEnd))
        return;
    const std::string trace = *std::exchange(m_trace, std::nullopt);
    if (m_traceListener)
        m_traceListener(std::string_view(trace).substr(1, trace.size() - 2));
}

void PluginLog::takeMessage(std::string_view message)
{
    m_writer(message);
    if (m_listener)
        m_listener(message);
}

Expected<std::unique_ptr<PluginLog>, QString> PluginLog::toStandardError()
{
    return open(writeToStandardError);
}

Expected<std::unique_ptr<PluginLog>, QString> PluginLog::toFile(const QString &path,
                                                                long limitBytes)
{
    handset_state::Refusal refusal;
    const auto file =
        std::make_shared<RotatingFile>(QFile::encodeName(path).toStdString(), limitBytes, refusal);
    if (refusal)
        return cannotLog(refusal.text());
    const auto journal =
        std::make_shared<PluginJournal>([file](std::string_view line) { file->write(line); });
    auto log = open([journal](std::string_view message) { journal->add(message); });
    if (log)
        (*log)->m_journal = journal;
    return log;
}

void PluginLog::beginCommand(const QString &name, const QString &address)
{
    if (m_journal)
        m_journal->beginCommand(name, address);
}

void PluginLog::beginMount(const QString &root)
{
    if (m_journal)
        m_journal->beginMount(root);
}

void PluginLog::endMount()
{
    if (m_journal)
        m_journal->endMount();
}

} // namespace client
