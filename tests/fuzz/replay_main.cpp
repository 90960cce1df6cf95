// Runs a fuzz target over kept inputs: `target FILE_OR_FOLDER...`. For builds without libFuzzer,
// whose own main does the same.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstddef>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

bool replay(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(path), qPrintable(file.errorString()));
        return false;
    }
    const QByteArray input = file.readAll();
    // Named before it runs, so that a crash shows which one it was.
    std::printf("%s\n", qPrintable(path));
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.constData()),
                           static_cast<std::size_t>(input.size()));
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    int inputs = 0;
    for (int index = 1; index < argc; ++index) {
        const QString path = QFile::decodeName(argv[index]);
        QStringList files{path};
        if (QFileInfo(path).isDir()) {
            files.clear();
            for (const QFileInfo &file : QDir(path).entryInfoList(QDir::Files, QDir::Name))
                files.append(file.filePath());
        }
        for (const QString &file : files) {
            if (!replay(file))
                return 1;
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
