// dmclient bootstrap

#include "bootstrap_message.h"
#include "command_table.h"
#include "commands.h"
#include "difference_report.h"
#include "http_module.h"
#include "input_file.h"
#include "plan_application.h"
#include "terminal.h"
#include "yes_or_no.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace client::cli {

using bootstrap::BootstrapMessage;
using bootstrap::ProvisioningPlan;
using commandline::isInteractive;
using commandline::printable;
using support::Expected;
using support::Unexpected;

namespace {

/// How a command ended before its message was applied.
struct Refusal {
    QString reason;
    ExitStatus status = ExitStatus::Failed;
};
using Check = Expected<void, Refusal>;

// ---- The proof -----------------------------------------------------------------------------------

Check checkOptions(const Context &context, const BootstrapMessage &message)
{
    const Invocation &invocation = context.invocation;
    const auto wrong = [](const QString &text) {
        return Unexpected(Refusal{text, ExitStatus::WrongUsage});
    };
    const bool takesPin = message.proof && needsPin(message.proof->kind);
    const bool takesImsi = message.proof && needsImsi(message.proof->kind);
    if (invocation.has("pin") && !takesPin)
        return wrong(QStringLiteral("the message has no proof that a PIN could be right for"));
    if (invocation.has("imsi") && !takesImsi)
        return wrong(QStringLiteral("the message has no proof that an IMSI could be right for"));
    if (invocation.has("imsi") && !bootstrap::isImsi(invocation.value("imsi").toUtf8()))
        return wrong(QStringLiteral("an IMSI has 6 to 15 digits"));
    if (takesImsi && !invocation.has("imsi"))
        return wrong(
            QStringLiteral("the message is for the owner of a SIM card: --imsi says which"));
    if (takesPin && invocation.arguments[0] == u"-")
        return wrong(QStringLiteral("the PIN cannot be read from standard input as well"));
    if (takesPin && !invocation.has("pin") && !isInteractive())
        return wrong(QStringLiteral("the message needs a PIN: --pin - reads it"));
    return {};
}

Check checkProof(const Context &context, const BootstrapMessage &message)
{
    bootstrap::MacSecrets secrets;
    secrets.imsi = context.invocation.value("imsi").toUtf8();
    if (!needsPin(message.proof->kind)) {
        if (message.isProvedBy(secrets))
            return {};
        return Unexpected(Refusal{QStringLiteral("the message is not for this SIM card: its MAC is "
                                                 "wrong")});
    }
    for (int tries = isInteractive() ? bootstrap::mostPinTries : 1; tries > 0; --tries) {
        const auto pin = commandline::secretMeant(QStringLiteral("-"), QStringLiteral("PIN"),
                                                  context.standardInput());
        if (!pin)
            return Unexpected(Refusal{pin.error(), ExitStatus::WrongUsage});
        secrets.pin = pin->toUtf8();
        if (message.isProvedBy(secrets))
            return {};
        if (tries > 1)
            context.output.notice(QStringLiteral("the PIN is wrong"));
    }
    return Unexpected(
        Refusal{QStringLiteral("the PIN is wrong, or the message was changed; it is discarded")});
}

/// What people are told of where a message comes from.
QString describeProof(const BootstrapMessage &message)
{
    return message.proof ? nameOf(message.proof->kind, message.profile) : QString();
}

// ---- The plan ------------------------------------------------------------------------------------

Check checkAgainstDevice(const Context &context, const ProvisioningPlan &plan)
{
    if (plan.isEmpty())
        return Unexpected(
            Refusal{QStringLiteral("there is nothing in the message for this device")});
    bootstrap::SameHost areSameHost;
    if (!plan.accounts.empty() && !context.device->accounts().accounts().empty()) {
        const auto http = HttpModule::load();
        if (!http)
            return Unexpected(Refusal{http.error(), ExitStatus::Unusable});
        areSameHost = (*http)->areSameHost;
    }
    const Outcome checked = checkAgainst(plan, *context.device, areSameHost);
    return checked ? Check() : Unexpected(Refusal{checked.reason});
}

Check askUnlessSaid(const Context &context)
{
    if (context.invocation.has("yes"))
        return {};
    if (!isInteractive() || context.invocation.has("json"))
        return Unexpected(Refusal{QStringLiteral("nothing is applied without --yes, since nobody "
                                                 "can be asked")});
    return askYesOrNo("Apply this?") ? Check()
                                     : Unexpected(Refusal{QStringLiteral("nothing is applied")});
}

Check applyPlan(const Context &context, const ProvisioningPlan &plan)
{
    const auto applied = apply(plan, *context.device);
    if (applied)
        return {};
    QString reason = QStringLiteral("nothing is applied: %1").arg(applied.error().reason);
    if (!applied.error().left.isEmpty())
        reason = QStringLiteral("not applied: %1; but %2")
                     .arg(applied.error().reason, applied.error().left.join(QStringLiteral("; ")));
    return Unexpected(Refusal{reason});
}

// ---- Telling -------------------------------------------------------------------------------------

bootstrap::Secrets secretsOf(const Context &context)
{
    return context.invocation.has("show-secrets") ? bootstrap::Secrets::Shown
                                                  : bootstrap::Secrets::Masked;
}

void printPlan(const Context &context, const BootstrapMessage &message,
               const ProvisioningPlan &plan)
{
    for (const QString &line : describe(plan, secretsOf(context)))
        context.output.line(printable(line));
    if (!message.proof)
        context.output.notice(QStringLiteral(
            "the message has no MAC: nothing but your having its file says whom it is from"));
}

void printJson(const Context &context, const BootstrapMessage &message,
               const ProvisioningPlan &plan, const Check &applied)
{
    QJsonObject object = toJson(plan, secretsOf(context));
    if (message.proof)
        object[u"proof"] = describeProof(message);
    object[u"applied"] = static_cast<bool>(applied);
    if (!applied)
        object[u"reason"] = applied.error().reason;
    context.output.json(QJsonDocument(object), QJsonDocument::Indented);
}

void tellNext(const Context &context, const ProvisioningPlan &plan)
{
    for (const bootstrap::PlannedAccount &account : plan.accounts)
        context.output.line(
            printable(QStringLiteral("next: dmclient session '%1'").arg(account.name)));
}

/// Everything from the shown plan on.
Check carryOut(const Context &context, const ProvisioningPlan &plan)
{
    for (const auto step :
         {checkAgainstDevice,
          +[](const Context &one, const ProvisioningPlan &) { return askUnlessSaid(one); },
          applyPlan})
        if (auto done = step(context, plan); !done)
            return done;
    return {};
}

ExitStatus refused(const Context &context, const Refusal &refusal)
{
    return problem(context, refusal.reason, refusal.status);
}

} // namespace

ExitStatus runBootstrap(Context &context)
{
    const QString &file = context.invocation.arguments[0];
    if (context.inShell && file == u"-")
        return wrongUsage(context, QStringLiteral("standard input is the shell's"));
    const auto bytes = commandline::readInput(file, bootstrap::largestBootstrapMessage);
    if (!bytes)
        return wrongUsage(context, bytes.error());
    const auto message = bootstrap::readBootstrapMessage(*bytes);
    if (!message)
        return wrongUsage(context, QStringLiteral("%1: %2").arg(file, message.error()));
    if (const Check options = checkOptions(context, *message); !options)
        return refused(context, options.error());
    if (message->proof)
        if (const Check proved = checkProof(context, *message); !proved)
            return refused(context, proved.error());
    const auto plan = planOf(*message, context.device->tree().uriLimits());
    if (!plan)
        return problem(context, QStringLiteral("%1: %2").arg(file, plan.error()),
                       ExitStatus::Failed);

    const bool asJson = context.invocation.has("json");
    if (!asJson)
        printPlan(context, *message, *plan);
    const Check applied = carryOut(context, *plan);
    if (asJson)
        printJson(context, *message, *plan, applied);
    printDifferences(context.output, *context.secondLook, lookAfterCommand(context));
    if (!applied)
        return refused(context, applied.error());
    if (!asJson)
        tellNext(context, *plan);
    return ExitStatus::Success;
}

} // namespace client::cli
