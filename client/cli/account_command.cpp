// dmclient account

#include "accounts.h"
#include "command_table.h"
#include "commands.h"
#include "parser.h"
#include "secret_leaf.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace client::cli {

using commandline::anyNumber;
using commandline::printable;

namespace {

/// What is not kept has to be said, and not as a fault of the command line.
ExitStatus notKept(const Context &context, const QString &reason)
{
    return problem(context, reason, ExitStatus::Unusable);
}

/// The name of the account that the command line names.
const QString &nameIn(const Context &context)
{
    return context.invocation.arguments[1];
}

/// Why the account that the command line names is not there.
ExitStatus noAccount(const Context &context)
{
    const AccountStore &accounts = context.device->accounts();
    if (!accounts.damage().isEmpty())
        return notKept(context, accounts.damage());
    if (const auto damaged = accounts.damagedAccounts().find(nameIn(context));
        damaged != accounts.damagedAccounts().end())
        return notKept(context, damaged->second.reason);
    return wrongUsage(context, QStringLiteral("no account %1").arg(nameIn(context)));
}

// ---- Values --------------------------------------------------------------------------------------

QString fieldNames()
{
    QStringList names;
    for (const AccountField &field : accountFields())
        names += QString::fromLatin1(field.name);
    return QStringLiteral("the fields are %1").arg(names.join(QStringLiteral(", ")));
}

/// Reads FIELD=VALUE words into an account, which is complete then.
support::Expected<void, QString> setFields(const Context &context, Account &account,
                                           const QStringList &words)
{
    for (const QString &word : words) {
        const qsizetype equals = word.indexOf(u'=');
        const QString name = word.left(equals);
        const AccountField *const field = equals < 0 ? nullptr : accountField(name);
        if (!field)
            return support::Unexpected(
                QStringLiteral("\"%1\" is not FIELD=VALUE; %2").arg(word, fieldNames()));
        const QString text = word.mid(equals + 1);
        const auto value = field->isSecret
                               ? commandline::secretMeant(text, name, context.standardInput())
                               : support::Expected<QString, QString>(text);
        if (!value)
            return support::Unexpected(value.error());
        if (const auto set = field->set(account, *value); !set)
            return support::Unexpected(QStringLiteral("%1 %2").arg(name, set.error()));
    }
    return checkComplete(account);
}

// ---- The five things that can be done ------------------------------------------------------------

/// The fields that have a value, secrets masked unless they are asked for.
std::vector<std::pair<QString, QString>> shownFields(const Context &context, const Account &account)
{
    std::vector<std::pair<QString, QString>> fields;
    for (const AccountField &field : accountFields()) {
        QString value = field.get(account);
        if (value.isEmpty())
            continue;
        if (field.isSecret && !context.invocation.has("show-secrets"))
            value = QString::fromLatin1(secretMask);
        fields.emplace_back(QString::fromLatin1(field.name), value);
    }
    return fields;
}

QJsonObject accountToJson(const Context &context, const QString &name, const Account &account)
{
    QJsonObject object{{QStringLiteral("name"), name}};
    for (const auto &[field, value] : shownFields(context, account))
        object[field] = value;
    return object;
}

ExitStatus listAsJson(Context &context)
{
    const AccountStore &accounts = context.device->accounts();
    QJsonArray array;
    for (const auto &[name, account] : accounts.accounts())
        array += accountToJson(context, name, account);
    for (const auto &[name, account] : accounts.damagedAccounts())
        array += QJsonObject{{QStringLiteral("name"), name},
                             {QStringLiteral("damaged"), account.reason}};
    context.output.json(QJsonDocument(array), QJsonDocument::Indented);
    return accounts.damage().isEmpty() ? ExitStatus::Success : ExitStatus::Unusable;
}

ExitStatus list(Context &context)
{
    if (context.invocation.has("json"))
        return listAsJson(context);
    const AccountStore &accounts = context.device->accounts();
    for (const auto &[name, account] : accounts.accounts())
        context.output.line(
            printable(QStringLiteral("%1  %2").arg(name, account.address.toString())));
    for (const auto &[name, account] : accounts.damagedAccounts())
        context.output.line(printable(QStringLiteral("%1  damaged: %2").arg(name, account.reason)));
    // That there are none would be no true answer.
    return accounts.damage().isEmpty() ? ExitStatus::Success : ExitStatus::Unusable;
}

ExitStatus show(Context &context)
{
    const Account *const account = context.device->accounts().find(nameIn(context));
    if (!account)
        return noAccount(context);
    if (context.invocation.has("json")) {
        context.output.json(QJsonDocument(accountToJson(context, nameIn(context), *account)),
                            QJsonDocument::Indented);
        return ExitStatus::Success;
    }
    for (const auto &[field, value] : shownFields(context, *account))
        context.output.line(printable(QStringLiteral("%1=%2").arg(field, value)));
    return ExitStatus::Success;
}

ExitStatus put(const Context &context, Account account)
{
    if (const auto named = checkAccountName(nameIn(context)); !named)
        return wrongUsage(context, named.error());
    if (const auto set = setFields(context, account, context.invocation.arguments.mid(2)); !set)
        return wrongUsage(context, set.error());
    if (const auto kept = context.device->putAccount(nameIn(context), account); !kept)
        return notKept(context, kept.error());
    if (sendsPasswordsInClear(account))
        return problem(context,
                       QStringLiteral("warning: with http and basic the password goes over the "
                                      "network as it is"),
                       ExitStatus::Success);
    return ExitStatus::Success;
}

ExitStatus add(Context &context)
{
    if (context.device->accounts().find(nameIn(context)))
        return wrongUsage(context, QStringLiteral("%1 is there already").arg(nameIn(context)));
    return put(context, Account());
}

ExitStatus set(Context &context)
{
    const Account *const account = context.device->accounts().find(nameIn(context));
    return account ? put(context, *account) : noAccount(context);
}

ExitStatus remove(Context &context)
{
    const AccountStore &accounts = context.device->accounts();
    if (!accounts.find(nameIn(context)) && !accounts.damagedAccounts().contains(nameIn(context)))
        return noAccount(context);
    const auto removed = context.device->removeAccount(nameIn(context));
    return removed ? ExitStatus::Success : notKept(context, removed.error());
}

struct ActionRow {
    const char *name;
    int minArguments; ///< the action's name included
    int maxArguments; ///< or anyNumber
    ExitStatus (*run)(Context &);
    bool prints = false;
};

constexpr ActionRow actions[] = {
    {"list", 1, 1, list, true}, {"show", 2, 2, show, true}, {"add", 3, anyNumber, add},
    {"set", 3, anyNumber, set}, {"remove", 2, 2, remove},
};

} // namespace

QStringList accountWords()
{
    QStringList names;
    for (const ActionRow &row : actions)
        names += QString::fromLatin1(row.name);
    return names;
}

QStringList accountFieldWords()
{
    QStringList words;
    for (const AccountField &field : accountFields())
        for (const QString &value : field.values ? field.values() : QStringList(QString()))
            words += QString::fromLatin1(field.name) + u'=' + value;
    return words;
}

QStringList accountDetails()
{
    return {QStringLiteral("T%1.").arg(fieldNames().sliced(1))};
}

ExitStatus runAccount(Context &context)
{
    const Invocation &invocation = context.invocation;
    const auto count = invocation.arguments.size();
    const auto *const action = std::ranges::find_if(actions, [&](const ActionRow &row) {
        return invocation.arguments[0] == QLatin1String(row.name) && count >= row.minArguments &&
               (row.maxArguments == anyNumber || count <= row.maxArguments);
    });
    if (action == std::end(actions))
        return context.output.problem(
            commandline::wrongArguments(*invocation.command,
                                        QStringLiteral("these arguments do not go together")),
            ExitStatus::WrongUsage);
    if (invocation.has("json") && !action->prints)
        return wrongUsage(
            context,
            QStringLiteral("%1 prints nothing that could be JSON").arg(invocation.arguments[0]));
    return action->run(context);
}

} // namespace client::cli
