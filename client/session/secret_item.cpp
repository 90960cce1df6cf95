#include "secret_item.h"

#include "media_type.h"
#include "secret_leaf.h"

namespace client {

using syncml::CommandKind;

namespace {

bool isSerialisedTree(const support::Boxed<syncml::Meta> &meta)
{
    return meta && meta->type && syncml::isSerialisedTree(*meta->type);
}

} // namespace

bool mayHoldSecret(const syncml::Command &command, const syncml::Item &item)
{
    const bool carriesValues = command.kind == CommandKind::Add ||
                               command.kind == CommandKind::Replace ||
                               command.kind == CommandKind::Results;
    const QString address = addressOf(item);
    return carriesValues && (address.isEmpty() || isSecretUri(address) ||
                             isSerialisedTree(item.meta) || isSerialisedTree(command.meta));
}

} // namespace client
