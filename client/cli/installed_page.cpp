#include "installed_page.h"

#include "input_file.h"
#include "program_folder.h"

namespace client::cli {

namespace {

constexpr qint64 mostPageBytes = 16 * 1024 * 1024; ///< without a record
constexpr QByteArrayView recordsPlace("@RECORDS@");

} // namespace

support::Expected<QByteArray, QString> installedPage(const char *command, const QByteArray &records)
{
    const QString file = QStringLiteral("%1/" KUB_PAGES_FROM_PROGRAM "/%2.html")
                             .arg(support::programFolder(), QString::fromLatin1(command));
    auto page = commandline::readInput(file, mostPageBytes);
    if (!page)
        return page;
    const qsizetype place = page->indexOf(recordsPlace);
    if (!page->startsWith(pageStart) || place < 0)
        return support::Unexpected(
            QStringLiteral("%1 is not the page of %2").arg(file, QString::fromLatin1(command)));
    page->replace(place, recordsPlace.size(), records);
    return page;
}

} // namespace client::cli
