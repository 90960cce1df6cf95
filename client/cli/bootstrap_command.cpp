// dmclient bootstrap

#include "bootstrap_message.h"
#include "command_table.h"
#include "commands.h"
#include "difference_report.h"
#include "http_module.h"
#include "input_file.h"
#include "interrupt_guard.h"
#include "json_user.h"
#include "pending_bootstraps.h"
#include "plan_application.h"
#include "terminal.h"
#include "yes_or_no.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <unistd.h>

namespace client::cli {

using bootstrap::BootstrapMessage;
using bootstrap::ProvisioningPlan;
using commandline::isInteractive;
using commandline::printable;
using push::PendingBootstrap;
using push::PendingBootstraps;
using support::Expected;
using support::Unexpected;

namespace {

/// How a command ended before its message was applied.
struct Refusal {
    QString reason = {};
    ExitStatus status = ExitStatus::Failed;
    /// Of a message that waits: it will never be applied, so it waits no longer.
    bool isFinal = false;
    bool wasAsked = false; ///< the user, who has not answered
};
using Check = Expected<void, Refusal>;

Unexpected<Refusal> discarded(const QString &reason)
{
    return Unexpected(Refusal{reason, ExitStatus::Failed, true});
}

/// Where the message comes from, and who is asked about it.
struct Source {
    QString name; ///< of the file, or of the message that waits
    /// None: a file of the owner's.
    std::optional<PendingBootstrap> pending = {};
    UserInteraction *user = nullptr; ///< null: whoever is at the terminal
};

/// The user of a device has to look for a letter with a PIN, but no session begins meanwhile.
constexpr auto timeToAnswer = std::chrono::minutes(3);

/// In characters, each of which may take six in JSON: a program that asks reads lines of 64 KiB.
constexpr qsizetype longestQuestion = 8 * 1024;

PendingBootstraps waitingMessages(const Context &context)
{
    return PendingBootstraps(context.device->state().path());
}

/// Why a question of a program's had no answer that helps.
Unexpected<Refusal> unanswered(UserInteraction::Response response)
{
    using Response = UserInteraction::Response;
    const QString reason = response == Response::NobodyThere ? QStringLiteral("nobody can be asked")
                           : response == Response::TimedOut  ? QStringLiteral("nobody has answered")
                           : response == Response::Cancelled
                               ? QStringLiteral("the user puts it off")
                               : QStringLiteral("the question could not be shown");
    return Unexpected(Refusal{.reason = reason, .wasAsked = response != Response::NobodyThere});
}

// ---- The proof -----------------------------------------------------------------------------------

/// Of the option, else of the SIM card that the message came to.
QByteArray imsiFor(const Context &context, const Source &source)
{
    if (context.invocation.has("imsi") || !source.pending)
        return context.invocation.value("imsi").toUtf8();
    return source.pending->imsi;
}

Check checkOptions(const Context &context, const BootstrapMessage &message, const Source &source)
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
    const QByteArray imsi = imsiFor(context, source);
    if (takesImsi && imsi.isEmpty())
        return wrong(
            QStringLiteral("the message is for the owner of a SIM card: --imsi says which"));
    if (takesImsi && !bootstrap::isImsi(imsi))
        return wrong(QStringLiteral("an IMSI has 6 to 15 digits"));
    if (source.user)
        return {};
    if (takesPin && source.name == u"-")
        return wrong(QStringLiteral("the PIN cannot be read from standard input as well"));
    if (takesPin && !invocation.has("pin") && !isInteractive())
        return wrong(QStringLiteral("the message needs a PIN: --pin - reads it"));
    return {};
}

Expected<QByteArray, Refusal> askForPin(const Context &context, const Source &source, bool isAgain)
{
    if (!source.user) {
        const auto pin = commandline::secretMeant(QStringLiteral("-"), QStringLiteral("PIN"),
                                                  context.standardInput());
        return pin ? Expected<QByteArray, Refusal>(pin->toUtf8())
                   : Unexpected(Refusal{pin.error(), ExitStatus::WrongUsage});
    }
    InteractionOptions options;
    options.maximumTime = timeToAnswer;
    options.input = InteractionOptions::Input::Number;
    options.isSecret = true;
    QString typed;
    const auto response = source.user->ask(
        (isAgain ? QStringLiteral("The PIN is wrong. ") : QString()) +
            QStringLiteral("A message that sets up this device came by SMS. Which PIN were you "
                           "given for it?"),
        options, typed);
    return response == UserInteraction::Response::Given
               ? Expected<QByteArray, Refusal>(typed.toUtf8())
               : unanswered(response);
}

/// Counts a try before it is made, so that no number of restarts gives more of them.
Check countTry(const Context &context, Source &source)
{
    if (!source.pending)
        return {};
    ++source.pending->pinTries;
    const auto kept = waitingMessages(context).change(*source.pending);
    return kept ? Check() : Unexpected(Refusal{kept.error(), ExitStatus::Unusable});
}

Check checkPin(const Context &context, const BootstrapMessage &message, Source &source)
{
    bootstrap::MacSecrets secrets;
    secrets.imsi = imsiFor(context, source);
    const int used = source.pending ? source.pending->pinTries : 0;
    const int left = bootstrap::mostPinTries - used;
    const int most = source.user || isInteractive() ? left : std::min(left, 1);
    for (int tries = 1; tries <= most; ++tries) {
        const auto pin = askForPin(context, source, tries > 1);
        if (!pin)
            return Unexpected(pin.error());
        if (auto counted = countTry(context, source); !counted)
            return counted;
        secrets.pin = *pin;
        if (message.isProvedBy(secrets))
            return {};
        if (tries < most && !source.user)
            context.output.notice(QStringLiteral("the PIN is wrong"));
    }
    if (source.pending && most < left)
        return Unexpected(Refusal{QStringLiteral("the PIN is wrong, or the message was changed; "
                                                 "it may be tried %1 more times")
                                      .arg(left - most)});
    return discarded(
        QStringLiteral("the PIN is wrong, or the message was changed; it is discarded"));
}

Check checkProof(const Context &context, const BootstrapMessage &message, Source &source)
{
    if (needsPin(message.proof->kind))
        return checkPin(context, message, source);
    bootstrap::MacSecrets secrets;
    secrets.imsi = imsiFor(context, source);
    if (message.isProvedBy(secrets))
        return {};
    const QString reason = QStringLiteral("the message is not for this SIM card: its MAC is wrong");
    // Another IMSI that somebody has typed says nothing of the message.
    return context.invocation.has("imsi") ? Check(Unexpected(Refusal{reason})) : discarded(reason);
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

Check askUser(UserInteraction &user, const ProvisioningPlan &plan)
{
    InteractionOptions options;
    options.maximumTime = timeToAnswer;
    QStringList lines{QStringLiteral("A message that came by SMS would set up on this device:")};
    lines += describe(plan, bootstrap::Secrets::Masked);
    lines += QStringLiteral("Do you want this?");
    const QString text = lines.join(u'\n');
    if (text.size() > longestQuestion)
        return Unexpected(Refusal{QStringLiteral("it is too long to be shown to its user")});
    const auto response = user.confirm(text, options);
    if (response == UserInteraction::Response::Given)
        return {};
    if (response == UserInteraction::Response::Refused)
        return discarded(QStringLiteral("the user does not want it"));
    return unanswered(response);
}

Check askUnlessSaid(const Context &context, const ProvisioningPlan &plan, const Source &source)
{
    if (context.invocation.has("yes"))
        return {};
    if (source.user)
        return askUser(*source.user, plan);
    if (!isInteractive() || context.invocation.has("json"))
        return Unexpected(Refusal{QStringLiteral("nothing is applied without --yes, since nobody "
                                                 "can be asked")});
    return askYesOrNo("Apply this?") ? Check()
                                     : Unexpected(Refusal{QStringLiteral("nothing is applied")});
}

/// From here on only the owner goes on with a message that waits, whatever ends this process.
Check setAside(const Context &context, Source &source)
{
    if (!source.pending)
        return {};
    source.pending->isSetAside = true;
    source.pending->pinTries = 0; // it is proved
    const auto kept = waitingMessages(context).change(*source.pending);
    return kept ? Check() : Unexpected(Refusal{kept.error(), ExitStatus::Unusable});
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

/// For whoever has asked the questions: what becomes of the message.
QString outcomeOf(const Check &applied, const Source &source)
{
    if (applied)
        return QStringLiteral("applied");
    if (applied.error().isFinal)
        return QStringLiteral("discarded");
    if (source.pending->isSetAside)
        return QStringLiteral("set-aside");
    return applied.error().wasAsked ? QStringLiteral("unanswered") : QStringLiteral("waits");
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

/// A line for whoever has had the questions answered; the plan was in them.
void printOutcome(const Context &context, const Source &source, const Check &applied,
                  const std::vector<bootstrap::PlannedAccount> &accounts)
{
    QJsonObject object{{QStringLiteral("bootstrap"), outcomeOf(applied, source)}};
    if (!applied) {
        object[u"reason"] = applied.error().reason;
    } else {
        QJsonArray names;
        for (const bootstrap::PlannedAccount &account : accounts)
            names += account.name;
        object[u"accounts"] = names;
    }
    context.output.json(QJsonDocument(object), QJsonDocument::Compact);
}

void tellNext(const Context &context, const ProvisioningPlan &plan)
{
    for (const bootstrap::PlannedAccount &account : plan.accounts)
        context.output.line(
            printable(QStringLiteral("next: dmclient session '%1'").arg(account.name)));
}

/// Everything from the shown plan on.
Check carryOut(const Context &context, const ProvisioningPlan &plan, Source &source)
{
    auto done = checkAgainstDevice(context, plan);
    if (!done) {
        // The service need not ask again for what only the owner can make room for.
        const auto kept = setAside(context, source);
        return kept ? done : kept;
    }
    if (done = askUnlessSaid(context, plan, source); !done)
        return done;
    if (done = setAside(context, source); !done)
        return done;
    return applyPlan(context, plan);
}

/// What becomes of a message that waits.
Check conclude(const Context &context, const Source &source, Check applied)
{
    if (!source.pending || (!applied && !applied.error().isFinal))
        return applied;
    // What was made is on the disk before the message that it was made of is gone.
    if (applied)
        if (const auto saved = context.device->saveProperties(); !saved)
            return Unexpected(Refusal{saved.error(), ExitStatus::Unusable});
    const auto finished = waitingMessages(context).finish(source.pending->id);
    return finished || !applied ? applied
                                : Unexpected(Refusal{finished.error(), ExitStatus::Unusable});
}

Check prove(const Context &context, const BootstrapMessage &message, Source &source)
{
    if (source.pending && !message.proof)
        return discarded(QStringLiteral("the message has no MAC, and came by air"));
    if (auto options = checkOptions(context, message, source); !options)
        return options;
    return message.proof ? checkProof(context, message, source) : Check();
}

ExitStatus refuse(const Context &context, const Check &check)
{
    return problem(context, check.error().reason, check.error().status);
}

ExitStatus applyMessage(const Context &context, const QByteArray &bytes, Source source)
{
    const bool asJson = context.invocation.has("json");
    const auto stop = [&](Check why) {
        why = conclude(context, source, why);
        if (source.user)
            printOutcome(context, source, why, {});
        return refuse(context, why);
    };
    const auto message = bootstrap::readBootstrapMessage(bytes);
    if (!message)
        return stop(Unexpected(Refusal{QStringLiteral("%1: %2").arg(source.name, message.error()),
                                       ExitStatus::WrongUsage, true}));
    if (const Check proved = prove(context, *message, source); !proved)
        return stop(proved);
    const auto plan = planOf(*message, context.device->tree().uriLimits());
    if (!plan)
        return stop(discarded(QStringLiteral("%1: %2").arg(source.name, plan.error())));

    if (!asJson)
        printPlan(context, *message, *plan);
    const Check applied = conclude(context, source, carryOut(context, *plan, source));
    if (source.user)
        printOutcome(context, source, applied, plan->accounts);
    else if (asJson)
        printJson(context, *message, *plan, applied);
    printDifferences(context.output, *context.secondLook, lookAfterCommand(context));
    if (!applied)
        return refuse(context, applied);
    if (!asJson)
        tellNext(context, *plan);
    return ExitStatus::Success;
}

// ---- Messages that wait --------------------------------------------------------------------------

/// The kind of proof, which can be read without knowing that it is right.
QString proofOf(const PendingBootstrap &pending)
{
    const auto message = bootstrap::readBootstrapMessage(pending.message);
    return message ? describeProof(*message) : QStringLiteral("unreadable");
}

QString timeOf(const PendingBootstrap &pending)
{
    return QDateTime::fromMSecsSinceEpoch(pending.received.count()).toString(Qt::ISODate);
}

ExitStatus listWaiting(const Context &context, const PendingBootstraps &waiting)
{
    const PendingBootstraps::Listing listing = waiting.list();
    QJsonArray array;
    for (const PendingBootstrap &pending : listing.pending) {
        if (context.invocation.has("json"))
            array += QJsonObject{
                {QStringLiteral("id"), pending.id},
                {QStringLiteral("received"), static_cast<qint64>(pending.received.count())},
                {QStringLiteral("bytes"), pending.message.size()},
                {QStringLiteral("proof"), proofOf(pending)},
                {QStringLiteral("pin-tries"), pending.pinTries},
                {QStringLiteral("set-aside"), pending.isSetAside}};
        else
            context.output.line(printable(
                QStringLiteral("%1  %2  %3 bytes, %4%5")
                    .arg(pending.id, timeOf(pending))
                    .arg(pending.message.size())
                    .arg(proofOf(pending),
                         pending.isSetAside ? QStringLiteral(", not applied so far") : QString())));
    }
    if (context.invocation.has("json"))
        context.output.json(QJsonDocument(array), QJsonDocument::Indented);
    for (const QString &damage : listing.damage)
        context.output.problem(damage);
    return listing.damage.isEmpty() ? ExitStatus::Success : ExitStatus::Unusable;
}

ExitStatus runWaiting(const Context &context)
{
    const Invocation &invocation = context.invocation;
    if (invocation.arguments.isEmpty())
        return invocation.has("discard")
                   ? wrongUsage(context, QStringLiteral("--discard needs the ID of a message"))
                   : listWaiting(context, waitingMessages(context));
    const PendingBootstraps waiting = waitingMessages(context);
    const QString &id = invocation.arguments[0];
    const auto pending = waiting.find(id);
    if (!pending)
        return problem(context, pending.error(), ExitStatus::Failed);
    if (invocation.has("discard")) {
        const auto finished = waiting.finish(id);
        return finished ? ExitStatus::Success
                        : problem(context, finished.error(), ExitStatus::Unusable);
    }
    if (!invocation.has("questions"))
        return applyMessage(context, pending->message, {.name = id, .pending = *pending});
    if (pending->isSetAside)
        return problem(context, QStringLiteral("%1 waits for its owner").arg(id),
                       ExitStatus::Failed);
    const InterruptGuard guard;
    JsonUser user(context.output, STDIN_FILENO, guard.file());
    return applyMessage(context, pending->message,
                        {.name = id, .pending = *pending, .user = &user});
}

} // namespace

std::optional<ExitStatus> listBootstraps(Context &context)
{
    const Invocation &invocation = context.invocation;
    const bool isListing = invocation.has("pending") && invocation.arguments.isEmpty() &&
                           !invocation.has("discard") && !invocation.has("questions");
    if (!isListing)
        return std::nullopt;
    const QFileInfo state(deviceOptions(invocation).stateDirectory);
    return listWaiting(context, PendingBootstraps(state.absoluteFilePath()));
}

ExitStatus runBootstrap(Context &context)
{
    const Invocation &invocation = context.invocation;
    if (invocation.has("questions") &&
        (!invocation.has("json") || !invocation.has("pending") || context.inShell))
        return wrongUsage(context, QStringLiteral("--questions needs --pending, --json, and "
                                                  "standard input"));
    if (invocation.has("pending"))
        return runWaiting(context);
    if (invocation.has("discard"))
        return wrongUsage(context, QStringLiteral("--discard needs --pending"));
    if (invocation.arguments.isEmpty())
        return wrongUsage(context, QStringLiteral("a FILE is missing"));
    const QString &file = invocation.arguments[0];
    if (context.inShell && file == u"-")
        return wrongUsage(context, QStringLiteral("standard input is the shell's"));
    const auto bytes = commandline::readInput(file, bootstrap::largestBootstrapMessage);
    if (!bytes)
        return wrongUsage(context, bytes.error());
    return applyMessage(context, *bytes, {.name = file});
}

} // namespace client::cli
