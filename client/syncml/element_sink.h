// A message as a stream of elements, whatever it is encoded in: the writing half that both codecs
// share.
#pragma once

#include "element.h"

#include <QByteArray>
#include <QString>

namespace syncml {

class ElementSink {
public:
    ElementSink() = default;
    virtual ~ElementSink() = default;
    ElementSink(const ElementSink &) = delete;
    ElementSink &operator=(const ElementSink &) = delete;

    /// Begins an element that has children.
    virtual void start(Element element) = 0;
    virtual void end() = 0;

    // Whole elements. False when the encoding cannot carry the content; nothing is written then.

    virtual bool text(Element element, const QString &text) = 0;
    virtual bool bytes(Element element, const QByteArray &bytes) = 0;
    virtual void empty(Element element) = 0;
};

} // namespace syncml
