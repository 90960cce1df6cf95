#include "answer_size.h"

namespace client {

qsizetype answerBytes(const syncml::Item &item)
{
    qsizetype bytes = bytesBesideTexts;
    for (const auto *const location : {&item.target, &item.source})
        bytes += *location ? (*location)->locUri.size() : 0;
    return bytes + (item.data ? item.data->size() : 0);
}

qsizetype answerBytes(const syncml::Command &answer)
{
    qsizetype bytes = bytesBesideTexts;
    for (const syncml::Item &item : answer.items)
        bytes += answerBytes(item);
    for (const auto *const references : {&answer.targetRefs, &answer.sourceRefs})
        for (const QString &uri : *references)
            bytes += uri.size();
    return bytes;
}

} // namespace client
