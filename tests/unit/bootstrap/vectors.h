// Messages that the tests are about.
#pragma once

#include <QByteArray>

/// The bytes of a literal, NULs included.
template <std::size_t Size>
QByteArray bytes(const char (&literal)[Size])
{
    return {literal, Size - 1};
}

/// A file of the folder vectors.
QByteArray vectorFile(const char *name);

/// A push: `01 06`, the length of the header, the header, the body.
QByteArray pushOf(const QByteArray &header, const QByteArray &body = "body");

/// The content type of such a header: a code with SEC and MAC, and how long it is.
QByteArray contentType(quint8 code, int security, const QByteArray &mac);

/// A provisioning document in XML.
QByteArray documentOf(const QByteArray &characteristics);
