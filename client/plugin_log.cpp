#include "plugin_log.h"

#include "aplog.h"
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

/// A file that is put aside when it has reached its limit.
class PluginLog::RotatingFile {
public:
    RotatingFile(std::string path, long limitBytes, handset_state::Refusal &refusal)
        : m_path(std::move(path)), m_limit(limitBytes)
    {
        refusal = open();
    }
    ~RotatingFile()
    {
        if (m_file >= 0)
            ::close(m_file);
    }
    RotatingFile(const RotatingFile &) = delete;
    RotatingFile &operator=(const RotatingFile &) = delete;

    bool isOpen() const { return m_file >= 0; }

    ssize_t write(const char *bytes, std::size_t size)
    {
        if (m_size >= m_limit)
            rotate();
        const ssize_t written = isOpen() ? ::write(m_file, bytes, size) : -1;
        if (written > 0)
            m_size += written;
        return written;
    }

private:
    handset_state::Refusal open()
    {
        handset_state::Refusal refusal;
        m_file = handset_state::openFile(m_path, O_WRONLY | O_APPEND | O_CREAT, refusal);
        struct stat status {};
        m_size = isOpen() && ::fstat(m_file, &status) == 0 ? status.st_size : 0;
        return refusal;
    }

    void rotate()
    {
        ::close(m_file);
        std::rename(m_path.c_str(), (m_path + ".1").c_str());
        open();
    }

    std::string m_path;
    long m_limit;
    int m_file = -1;
    long m_size = 0;
};

PluginLog::PluginLog() = default;

PluginLog::~PluginLog()
{
    libaplog_to_module_ptr = nullptr;
    if (m_file)
        std::fclose(m_stream);
}

std::unique_ptr<PluginLog> PluginLog::toStandardError()
{
    std::unique_ptr<PluginLog> log(new PluginLog);
    libaplog_to_module_ptr = log->m_stream = stderr;
    return log;
}

std::unique_ptr<PluginLog> PluginLog::toFile(const QString &path, QString &error, long limitBytes)
{
    handset_state::Refusal refusal;
    auto file =
        std::make_unique<RotatingFile>(QFile::encodeName(path).toStdString(), limitBytes, refusal);
    FILE *stream = nullptr;
    if (file->isOpen()) {
        cookie_io_functions_t functions{};
        functions.write = [](void *cookie, const char *bytes, std::size_t size) -> ssize_t {
            return static_cast<RotatingFile *>(cookie)->write(bytes, size);
        };
        stream = fopencookie(file.get(), "a", functions);
    }
    if (!stream) {
        error = QStringLiteral("the plug-in's log: %1")
                    .arg(QString::fromLocal8Bit(refusal ? refusal.text().c_str()
                                                        : std::strerror(errno)));
        return nullptr;
    }
    // Messages come in whole lines; a line at a time keeps them whole across a rotation.
    std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
    std::unique_ptr<PluginLog> log(new PluginLog);
    log->m_file = std::move(file);
    libaplog_to_module_ptr = log->m_stream = stream;
    return log;
}

} // namespace client
