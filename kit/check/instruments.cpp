#include "instruments.h"

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <system_error>
#include <unistd.h>

bool isSanitized()
{
    return dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
}

std::string sanitizerOf(const std::string &library)
{
    QFile file(QFile::decodeName(library.c_str()));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Names of needed libraries stand in the file as they are.
    const QByteArray bytes = file.readAll();
    const qsizetype start = bytes.indexOf("libasan.so.");
    return start < 0 ? std::string() : std::string(bytes.constData() + start);
}

QString runWithSanitizer(const QStringList &words, const std::string &sanitizer)
{
    std::vector<QByteArray> texts;
    for (const QString &word : words)
        texts.push_back(word.toUtf8());
    std::vector<char *> argv;
    for (QByteArray &text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    ::setenv("LD_PRELOAD", sanitizer.c_str(), 1);
    // The processes of examinations end without giving back what they have.
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 0);
    ::execv("/proc/self/exe", argv.data());
    return QString::fromLocal8Bit(std::strerror(errno));
}

namespace {

/// The loader of libraries reads its own texts a word at a time, beyond their ends.
constexpr char suppressions[] = R"({
   loader
   Memcheck:Addr8
   obj:*/ld-linux*
   obj:*/ld-linux*
}
)";

} // namespace

std::optional<commandline::ExitStatus> runUnderValgrind(const QStringList &commandLine)
{
    const QTemporaryDir logs;
    ::setenv("TMPDIR", QFile::encodeName(logs.path()).constData(), 1);
    QFile file(logs.filePath(QStringLiteral("suppressions")));
    if (!file.open(QIODevice::WriteOnly) || file.write(suppressions) < 0 || !file.flush())
        throw std::system_error(EIO, std::generic_category(), file.fileName().toStdString());
    QStringList words = {QStringLiteral("--quiet"),
                         QStringLiteral("--suppressions=") + file.fileName(),
                         QStringLiteral("--error-exitcode=121"),
                         QStringLiteral("--log-file=%1/valgrind.%p").arg(logs.path()),
                         QStringLiteral("--leak-check=no"),
                         QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))};
    words += commandLine.sliced(1);
    words.removeAll(QStringLiteral("--valgrind"));
    QProcess valgrind;
    valgrind.setProcessChannelMode(QProcess::ForwardedChannels);
    valgrind.start(QStringLiteral("valgrind"), words);
    if (!valgrind.waitForStarted())
        return std::nullopt;
    valgrind.waitForFinished(-1);
    return valgrind.exitStatus() == QProcess::NormalExit
               ? static_cast<commandline::ExitStatus>(valgrind.exitCode())
               : commandline::ExitStatus::Unusable;
}
