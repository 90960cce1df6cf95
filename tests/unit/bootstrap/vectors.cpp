#include "vectors.h"

#include <QFile>
#include <gtest/gtest.h>

QByteArray vectorFile(const char *name)
{
    QFile file(QStringLiteral(KUB_VECTORS "/%1").arg(QString::fromLatin1(name)));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name;
    return file.readAll();
}

QByteArray pushOf(const QByteArray &header, const QByteArray &body)
{
    EXPECT_LT(header.size(), 0x80);
    return bytes("\x01\x06") + static_cast<char>(header.size()) + header + body;
}

QByteArray contentType(quint8 code, int security, const QByteArray &mac)
{
    const QByteArray type = QByteArray(1, static_cast<char>(0x80 | code)) + '\x91' +
                            static_cast<char>(0x80 | security) + '\x92' + mac + '\0';
    return QByteArray("\x1F") + static_cast<char>(type.size()) + type;
}

QByteArray documentOf(const QByteArray &characteristics)
{
    return "<wap-provisioningdoc>" + characteristics + "</wap-provisioningdoc>";
}
