// What is refused before the XML reader sees it, because the reader would spend far more on it than
// its length.
#pragma once

#include <QByteArrayView>
#include <QString>
#include <optional>

struct XmlRefusal {
    QString text;    ///< one sentence without its full stop, for a person
    qint64 line = 0; ///< that the markup begins in, from 1
};

/// The first reason in `xml` to keep it from the reader: a document type with declarations of its
/// own, which the reader works through before it tells of them, or a tag with more attributes than
/// `mostAttributes`, which it compares each with each.
std::optional<XmlRefusal> guardXml(QByteArrayView xml, qsizetype mostAttributes);
