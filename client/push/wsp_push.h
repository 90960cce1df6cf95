// A WAP push as it comes in an SMS, behind the ports: a header of WSP, and what it carries. A
// bootstrap message is one, and so is a notification of a DM server.
#pragma once

#include "expected.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace client::push {

namespace push_type {
inline constexpr char connectivityXml[] = "text/vnd.wap.connectivity-xml";
inline constexpr char connectivityWbxml[] = "application/vnd.wap.connectivity-wbxml";
inline constexpr char dmXml[] = "application/vnd.syncml.dm+xml";
inline constexpr char dmWbxml[] = "application/vnd.syncml.dm+wbxml";
inline constexpr char notification[] = "application/vnd.syncml.notification";
} // namespace push_type

struct WspPush {
    /// Largest one that is read, in bytes: 255 messages of 134 bytes each are as much as an SMS can
    /// be.
    static constexpr qsizetype largest = 64 * 1024;

    quint8 transaction = 0;
    /// In lower case; "code 0x.." for one that is no push of interest here.
    QByteArray mediaType;
    /// Parameter SEC of the media type: a decimal number, or a word in upper case.
    std::optional<QByteArray> security;
    /// Parameter MAC of the media type, as text.
    std::optional<QByteArray> mac;
    /// X-WAP-Application-ID: a decimal number, or a URI.
    std::optional<QByteArray> application;
    QByteArray body;
};

/// Whether the bytes begin as a push does, and not as XML or WBXML.
bool looksLikePush(const QByteArray &bytes);

/// Reads a push. Unknown parameters and headers are skipped. The error is a sentence that says what
/// is wrong, and where.
support::Expected<WspPush, QString> readWspPush(const QByteArray &bytes);

} // namespace client::push
