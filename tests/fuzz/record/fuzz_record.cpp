// Any bytes as a record of somebody else: what is taken is a run and its events, each a line of the
// file as it stands there, to the last whole line; a person can be told of each of them.
#include "record_reader.h"
#include "record_text.h"

#include <QByteArrayView>
#include <QJsonDocument>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// A file that is nowhere, with these bytes.
class NamelessFile {
public:
    explicit NamelessFile(QByteArrayView bytes) : m_file(::memfd_create("record", MFD_CLOEXEC))
    {
        if (m_file < 0 || ::write(m_file, bytes.data(), static_cast<std::size_t>(bytes.size())) !=
                              static_cast<ssize_t>(bytes.size()))
            std::abort();
    }
    ~NamelessFile() { ::close(m_file); }
    NamelessFile(const NamelessFile &) = delete;
    NamelessFile &operator=(const NamelessFile &) = delete;

    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(m_file); }

private:
    int m_file;
};

void require(bool isSo)
{
    if (!isSo)
        std::abort();
}

/// Reads to the end. @return the last event; none when a line was refused
std::optional<QJsonObject> readAll(client::RecordReader &reader, QByteArrayView bytes)
{
    QJsonObject last;
    qsizetype begin = 0;
    for (int number = 1;; ++number) {
        const auto event = reader.next();
        if (!event) {
            require(event.error().contains(QStringLiteral(": line %1: ").arg(number)));
            return std::nullopt;
        }
        if (!*event)
            break;
        require(reader.lineNumber() == number);
        const QByteArray line = reader.line();
        require(bytes.sliced(begin).startsWith(line) && line.endsWith('\n'));
        begin += line.size();
        require(QJsonDocument::fromJson(line).object() == **event);
        require((**event)[u"event"].isString() && (**event)[u"t"].isDouble());
        client::eventLines(**event);
        last = **event;
    }
    require(!bytes.sliced(begin).contains('\n'));
    return last;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const NamelessFile file(bytes);
    auto reader = client::RecordReader::open(file.path());
    if (!reader)
        return 0;
    require(reader->run()[u"event"] == QStringLiteral("run"));
    const QJsonObject lastEvent = reader->lastEvent();
    // The end of a file is looked at alone, and no more of it than ends of records need.
    constexpr qsizetype surelyLookedAt = 32 * 1024;
    const auto last = readAll(*reader, bytes);
    require(!last || bytes.size() > surelyLookedAt || lastEvent == *last);
    return 0;
}
