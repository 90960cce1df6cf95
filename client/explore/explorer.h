// `dmclient explore`: a page on which one person works with a handset, and sees what it does.
#pragma once

#include "handset_process.h"
#include "page_server.h"

#include <QString>

namespace client {

struct ExplorerOptions {
    HandsetProcess::Options handset;
    bool canGoBack = true;  ///< whether all that the handset stores lies in its state directory
    QByteArray page;        ///< HTML, which says what a browser may do with it
    int interruptFile = -1; ///< becomes readable when somebody wants it to end
};

/// Serves the page until the interrupt file can be read; needs a QCoreApplication.
/// @param started  is called once with the address, when somebody can open it
/// @return why it could not begin
support::Expected<void, QString> explore(const ExplorerOptions &options,
                                         const std::function<void(const QUrl &address)> &started);

} // namespace client
