// A client with a small tree, and a scripted server to have sessions with.
#pragma once

#include "encoding_name.h"
#include "mounted_tree.h"
#include "scripted_server.h"
#include "session.h"

namespace client {

/// Notes what a session tells.
class Listener final : public SessionObserver {
public:
    void commandAnswered(const AnsweredCommand &command) override;
    void note(const QString &text) override { notes.push_back(text.toStdString()); }

    std::vector<std::string> commands; ///< "Get ./A 404 no node ./A"
    std::vector<std::string> notes;
};

/// Every test that uses it runs in both encodings.
class SessionTest : public MountedTree, public testing::WithParamInterface<syncml::Encoding> {
protected:
    using Lines = std::vector<std::string>;

    SessionTest();

    /// Runs the session, and keeps the nonces in the account as the next session would find them.
    SessionEnd run(UserInteraction *user = nullptr);
    /// Runs the session, which has to fail for that reason.
    testing::AssertionResult failsWith(const char *reason);
    /// What the client said in its message of that number, from 1.
    Lines sent(std::size_t number) const;
    const syncml::Message &message(std::size_t number) const
    {
        return server.messages.at(number - 1);
    }

    Account account;
    SessionOptions options;
    ScriptedServer server{GetParam()};
    Listener listener;
};

/// Makes a suite of SessionTest's run in both encodings.
#define IN_BOTH_ENCODINGS(suite)                                                                   \
    INSTANTIATE_TEST_SUITE_P(In, suite,                                                            \
                             testing::Values(syncml::Encoding::Xml, syncml::Encoding::Wbxml),      \
                             [](const auto &info) { return syncml::encodingName(info.param); })

} // namespace client
