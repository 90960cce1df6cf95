#include "recording.h"

#include "commands.h"
#include "common_rows.h"
#include "difference_report.h"

#include <utility>

namespace client::cli {

namespace {

/// The words of a command line again: options in the order of their names, then the rest.
QStringList wordsOf(const Invocation &invocation)
{
    QStringList words{QString::fromLatin1(invocation.command->name)};
    for (auto option = invocation.options.begin(); option != invocation.options.end(); ++option)
        for (const QString &value : option.value())
            words += value.isEmpty() ? QStringLiteral("--%1").arg(option.key())
                                     : QStringLiteral("--%1=%2").arg(option.key(), value);
    return words + invocation.arguments;
}

} // namespace

Recording::Recording(DmDevice &device, const RunDescription &run, EventWriter::Sink sink)
    : m_device(device), m_run(run), m_recorder(run, {std::move(sink)})
{
    for (const auto &[name, account] : device.accounts().accounts())
        for (const Credentials &credentials : {account.toServer, account.toClient}) {
            m_recorder.learnSecret(credentials.identity.secret);
            m_recorder.learnSecret(basicProof(credentials.identity));
        }
    device.setObserver(&m_recorder);
}

Recording::~Recording()
{
    m_device.setObserver(nullptr);
}

support::Expected<std::unique_ptr<Recording>, QString> Recording::kept(DmDevice &device,
                                                                       const Invocation &invocation)
{
    const RunDescription run = describeRun(device, invocation);
    auto sink = keptRecords(device).begin(run);
    if (!sink)
        return support::Unexpected(sink.error());
    auto recording = std::make_unique<Recording>(device, run, *std::move(sink));
    recording->m_isKept = true;
    return recording;
}

support::Expected<void, QString> Recording::keep()
{
    auto sink = keptRecords(m_device).begin(m_run);
    if (!sink)
        return support::Unexpected(sink.error());
    m_recorder.addSink(*std::move(sink));
    m_isKept = true;
    return {};
}

ExitStatus Recording::finish(ExitStatus status)
{
    m_recorder.end(m_session ? &*m_session : nullptr, static_cast<int>(status));
    if (m_isKept)
        keptRecords(m_device).prune();
    return status;
}

ExitStatus endSessionRecording(Context &context, ExitStatus status)
{
    const auto recording = std::exchange(context.sessionRecording, nullptr);
    if (!recording)
        return status;
    context.recording = nullptr;
    recordLooks(context);
    recording->finish(status);
    if (const auto &loss = recording->recorder().lossReason())
        problem(context, QStringLiteral("the session's record has gaps: %1").arg(*loss), status);
    return status;
}

KeptRecords keptRecords(const DmDevice &device)
{
    return keptRecords(device.state().path());
}

KeptRecords keptRecords(const QString &stateDirectory)
{
    return KeptRecords(stateDirectory + QStringLiteral("/client/records"));
}

RunDescription describeRun(const DmDevice &device, const Invocation &invocation)
{
    RunDescription run;
    run.plugin = device.profilePlugin();
    run.backend = device.profileStore();
    run.stateDirectory = device.state().path();
    run.arguments = wordsOf(invocation);
    run.showsSecrets = invocation.has("show-secrets");
    return run;
}

} // namespace client::cli
