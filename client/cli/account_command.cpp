// dmclient account

#include "accounts.h"
#include "command_table.h"
#include "commands.h"
#include "parser.h"
#include "secret_leaf.h"

#include <algorithm>
#include <iterator>

namespace client::cli {

using commandline::printable;

namespace {

ExitStatus problem(Context &context, const QString &text)
{
    return wrongUsage(context, QStringLiteral("account: %1").arg(text));
}

/// What is not kept has to be said, and not as a fault of the command line.
ExitStatus notKept(Context &context, const QString &reason)
{
    problem(context, reason);
    return ExitStatus::Unusable;
}

ExitStatus noAccount(Context &context, const QString &name)
{
    const AccountStore &accounts = context.device->accounts();
    if (!accounts.damage().isEmpty())
        return notKept(context, accounts.damage());
    if (const auto damaged = accounts.damagedAccounts().find(name);
        damaged != accounts.damagedAccounts().end())
        return notKept(context, damaged->second.reason);
    return problem(context, QStringLiteral("no account %1").arg(name));
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

ExitStatus list(Context &context, const Invocation &)
{
    for (const auto &[name, account] : context.device->accounts().accounts())
        context.output.line(
            printable(QStringLiteral("%1  %2").arg(name, account.address.toString())));
    for (const auto &[name, account] : context.device->accounts().damagedAccounts())
        context.output.line(printable(QStringLiteral("%1  damaged: %2").arg(name, account.reason)));
    // That there are none would be no true answer.
    return context.device->accounts().damage().isEmpty() ? ExitStatus::Success
                                                         : ExitStatus::Unusable;
}

ExitStatus show(Context &context, const Invocation &invocation)
{
    const Account *const account = context.device->accounts().find(invocation.arguments[1]);
    if (!account)
        return noAccount(context, invocation.arguments[1]);
    for (const AccountField &field : accountFields()) {
        QString value = field.get(*account);
        if (value.isEmpty())
            continue;
        if (field.isSecret && !invocation.has("show-secrets"))
            value = QString::fromLatin1(secretMask);
        context.output.line(
            printable(QStringLiteral("%1=%2").arg(QString::fromLatin1(field.name), value)));
    }
    return ExitStatus::Success;
}

ExitStatus put(Context &context, const Invocation &invocation, Account account)
{
    const QString &name = invocation.arguments[1];
    if (const auto named = checkAccountName(name); !named)
        return problem(context, named.error());
    if (const auto set = setFields(context, account, invocation.arguments.mid(2)); !set)
        return problem(context, set.error());
    if (const auto kept = context.device->putAccount(name, account); !kept)
        return notKept(context, kept.error());
    if (sendsPasswordsInClear(account))
        context.output.problem(QStringLiteral("account: warning: with http and basic the password "
                                              "goes over the network as it is"));
    return ExitStatus::Success;
}

ExitStatus add(Context &context, const Invocation &invocation)
{
    if (context.device->accounts().find(invocation.arguments[1]))
        return problem(context, QStringLiteral("%1 is there already").arg(invocation.arguments[1]));
    return put(context, invocation, Account());
}

ExitStatus set(Context &context, const Invocation &invocation)
{
    const Account *const account = context.device->accounts().find(invocation.arguments[1]);
    return account ? put(context, invocation, *account)
                   : noAccount(context, invocation.arguments[1]);
}

ExitStatus remove(Context &context, const Invocation &invocation)
{
    const AccountStore &accounts = context.device->accounts();
    if (!accounts.find(invocation.arguments[1]) &&
        !accounts.damagedAccounts().contains(invocation.arguments[1]))
        return noAccount(context, invocation.arguments[1]);
    const auto removed = context.device->removeAccount(invocation.arguments[1]);
    return removed ? ExitStatus::Success : notKept(context, removed.error());
}

struct ActionRow {
    const char *name;
    int minArguments; ///< the action's name included
    int maxArguments; ///< -1: any number
    ExitStatus (*run)(Context &, const Invocation &);
};

constexpr ActionRow actions[] = {
    {"list", 1, 1, list}, {"show", 2, 2, show},     {"add", 3, -1, add},
    {"set", 3, -1, set},  {"remove", 2, 2, remove},
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
        words += QString::fromLatin1(field.name) + u'=';
    return words;
}

QStringList accountDetails()
{
    return {QStringLiteral("T%1.").arg(fieldNames().sliced(1))};
}

ExitStatus runAccount(Context &context, const Invocation &invocation)
{
    const auto count = invocation.arguments.size();
    const auto *const action = std::ranges::find_if(actions, [&](const ActionRow &row) {
        return invocation.arguments[0] == QLatin1String(row.name) && count >= row.minArguments &&
               (row.maxArguments < 0 || count <= row.maxArguments);
    });
    if (action == std::end(actions))
        return wrongUsage(context, commandline::wrongArguments(
                                       *invocation.command,
                                       QStringLiteral("these arguments do not go together")));
    return action->run(context, invocation);
}

} // namespace client::cli
