#include "program_folder.h"

#include <QFile>
#include <QFileInfo>

namespace support {

QString programFolder()
{
    return QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).path();
}

} // namespace support
