#include "second_look_process.h"

#include "wire.h"

#include <QFile>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace client {

namespace {

/// Reads all bytes, or to the end of the input. @return false at that end
bool readAll(char *bytes, qsizetype size)
{
    return std::fread(bytes, 1, static_cast<std::size_t>(size), stdin) ==
           static_cast<std::size_t>(size);
}

bool readFrame(QByteArray &frame)
{
    QByteArray length(wire::lengthBytes, '\0');
    if (!readAll(length.data(), length.size()))
        return false;
    const std::optional<qsizetype> bytes = wire::lengthIn(length);
    if (!bytes)
        return false;
    frame.resize(*bytes);
    return readAll(frame.data(), frame.size());
}

void writeFrame(const QByteArray &frame)
{
    const QByteArray bytes = wire::withLength(frame);
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

/// Does what the requests say. @return at the end of the input, and after a damaged frame
void serve(const QString &folder)
{
    std::unique_ptr<Mirror> mirror;
    QByteArray frame;
    while (readFrame(frame)) {
        auto request = wire::Request::Setup;
        wire::Setup setup;
        std::vector<TreeChange> changes;
        if (!wire::unpack(frame, request, setup, changes))
            return;
        if (request == wire::Request::Setup) {
            if (setup.folder != folder)
                return;
            mirror =
                std::make_unique<Mirror>(DmDevice::Options{.stateDirectory = setup.folder,
                                                           .pluginFolder = setup.pluginFolder,
                                                           .profilePlugin = setup.profilePlugin,
                                                           .profileBackend = setup.backend});
            if (setup.isCopied && !mirror->open())
                return;
            if (setup.isCopied && setup.isMounted)
                mirror->mount();
        } else if (!mirror) {
            return;
        } else if (request == wire::Request::WholeTree) {
            writeFrame(wire::pack(mirror->wholeTree(wire::mostNodesOfTree)));
        } else if (request == wire::Request::Changes) {
            std::vector<SeenChange> seen;
            for (const TreeChange &change : changes)
                seen.push_back(mirror->apply(change));
            writeFrame(wire::pack(seen));
        } else {
            writeFrame(wire::pack(mirror->mountAgain(changes)));
        }
    }
}

} // namespace

void runSecondLook(const char *folder)
{
    // What ends the client ends this process by its pipe, which leaves it the time to tidy up.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        std::signal(signal, SIG_IGN);
    const QString scratch = QFile::decodeName(folder);
    serve(scratch);
    StateDirectory::removeScratchFolder(scratch);
    // Nothing of the copy has to reach the disk, as the stores would see to when they are closed.
    ::_exit(EXIT_SUCCESS);
}

} // namespace client
