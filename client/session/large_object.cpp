#include "large_object.h"

#include <utility>

namespace client {

using namespace syncml;

namespace {

bool sameOrNone(const std::optional<Location> &first, const std::optional<Location> &next)
{
    return !next || (first && first->locUri == next->locUri);
}

std::optional<qsizetype> declaredSize(const Command &command, const Item &item)
{
    for (const support::Boxed<syncml::Meta> *const meta : {&item.meta, &command.meta}) {
        if (!*meta || !(*meta)->size)
            continue;
        bool isNumber = false;
        const qlonglong size = (*meta)->size->trimmed().toLongLong(&isNumber);
        return isNumber && size >= 0 ? std::optional<qsizetype>(size) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace

bool LargeObjectReceiver::continues(const Command &command, const Item &item) const
{
    return m_object && command.kind == m_object->command &&
           sameOrNone(m_object->first.target, item.target) &&
           sameOrNone(m_object->first.source, item.source);
}

Outcome LargeObjectReceiver::take(const Command &command, Item &item)
{
    if (!m_object) {
        if (const Outcome begun = begin(command, item); !begun)
            return begun;
    }
    Object &object = *m_object;
    object.data += item.data.value_or(QByteArray());
    if (object.data.size() > object.size)
        return drop(DmStatus::SizeMismatch,
                    QStringLiteral("more than the %1 bytes that were announced").arg(object.size));
    if (item.moreData)
        return {DmStatus::ChunkAccepted, {}};
    if (object.data.size() < object.size)
        return drop(
            DmStatus::SizeMismatch,
            QStringLiteral("%1 bytes instead of %2").arg(object.data.size()).arg(object.size));
    item = std::move(object.first);
    item.data = std::move(object.data);
    m_object.reset();
    return {};
}

Outcome LargeObjectReceiver::begin(const Command &command, const Item &item)
{
    const auto size = declaredSize(command, item);
    if (!size)
        return {DmStatus::IncompleteCommand,
                QStringLiteral("the first chunk of a large object gives no size")};
    if (*size > m_largestObject)
        return {DmStatus::TooLarge,
                QStringLiteral("an object of more than %1 bytes").arg(m_largestObject)};
    m_object = Object{command.kind, item, {}, *size};
    Item &first = m_object->first;
    first.data.reset();
    first.moreData = false;
    // Later chunks need not repeat what the command says for all its items.
    if (!first.meta)
        first.meta.emplace();
    if (command.meta) {
        first.meta->format = first.meta->format ? first.meta->format : command.meta->format;
        first.meta->type = first.meta->type ? first.meta->type : command.meta->type;
    }
    return {};
}

Outcome LargeObjectReceiver::drop(DmStatus status, const QString &reason)
{
    m_object.reset();
    return {status, reason};
}

Item LargeObjectReceiver::abandon()
{
    Item named;
    named.target = m_object->first.target;
    named.source = m_object->first.source;
    m_object.reset();
    return named;
}

} // namespace client
