// The settings class tells whoever listens of every call.
#include <string>
#include <utility>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "heap_count.h"
#include "setting_call_observer.h"
#include "setup_set_manager.h"

extern "C" call_observer::SetSettingCallObserver kub_appbase_set_call_observer;

namespace {

using call_observer::SettingCall;

/// A text as the expected lines have it.
std::string shown(const QString &text)
{
    return text.isNull() ? "null" : '"' + text.toStdString() + '"';
}

class Listener : public call_observer::SettingCallObserver {
public:
    bool observe(const SettingCall &call) noexcept override
    {
        lines.push_back(std::string(call.function) + ' ' + shown(call.group) + ' ' +
                        shown(call.key) + ": " + shown(call.before) + " -> " + shown(call.after) +
                        (call.result ? "" : " false"));
        files.push_back(call.file);
        reasons.push_back(call.reason);
        return showsReasons;
    }

    std::vector<std::string> take() { return std::exchange(lines, {}); }

    bool showsReasons = true;
    std::vector<std::string> lines;
    std::vector<QString> files;
    std::vector<QString> reasons;
};

class SettingCallObserverTest : public testing::Test {
protected:
    using Lines = std::vector<std::string>;

    void SetUp() override
    {
        ASSERT_TRUE(m_directory.isValid());
        kub_appbase_set_call_observer(&m_listener);
    }
    void TearDown() override { kub_appbase_set_call_observer(nullptr); }

    QTemporaryDir m_directory;
    const QString m_path = m_directory.filePath(QStringLiteral("test.cfg"));
    const QString m_group = QStringLiteral("Group");
    const QString m_key = QStringLiteral("Key");
    Listener m_listener;
};

TEST_F(SettingCallObserverTest, EachFunctionReportsItself)
{
    SETUP_SET_Manager manager(m_path, false);
    EXPECT_EQ(m_listener.take(), Lines{"open null null: null -> null"});

    QString value;
    manager.getSettingInfo(m_group, m_key, value, QStringLiteral("default"), false);
    EXPECT_EQ(m_listener.take(), Lines{R"(getSettingInfo "Group" "Key": null -> null false)"});

    manager.setSettingInfo(m_group, m_key, QStringLiteral("one"), false);
    manager.setSettingInfo(m_group, m_key, QStringLiteral("two"), false);
    manager.setSettingInfo(m_group, m_key, QString(), false);
    EXPECT_EQ(m_listener.take(), (Lines{R"(setSettingInfo "Group" "Key": null -> "one")",
                                        R"(setSettingInfo "Group" "Key": "one" -> "two")",
                                        R"(setSettingInfo "Group" "Key": "two" -> "")"}));

    manager.getSettingInfo(m_group, m_key, value, QString(), false);
    EXPECT_EQ(m_listener.take(), Lines{R"(getSettingInfo "Group" "Key": null -> "")"});

    manager.getEntryKeyList(m_group);
    EXPECT_EQ(m_listener.take(), Lines{R"(getEntryKeyList "Group" null: null -> null)"});

    EXPECT_TRUE(manager.flush());
    EXPECT_EQ(m_listener.take(), Lines{"flush null null: null -> null"});

    EXPECT_TRUE(manager.removeEntry(m_group, m_key));
    EXPECT_FALSE(manager.removeEntry(m_group, m_key));
    EXPECT_EQ(m_listener.take(), (Lines{R"(removeEntry "Group" "Key": "" -> null)",
                                        R"(removeEntry "Group" "Key": null -> null false)"}));
    EXPECT_EQ(m_listener.files, std::vector<QString>(m_listener.files.size(), m_path));
    EXPECT_EQ(m_listener.reasons, std::vector<QString>(m_listener.reasons.size()));
}

TEST_F(SettingCallObserverTest, NobodyIsToldOnceTheListenerIsTakenAway)
{
    SETUP_SET_Manager manager(m_path, false);
    m_listener.take();
    kub_appbase_set_call_observer(nullptr);
    EXPECT_TRUE(manager.setSettingInfo(m_group, m_key, m_key, false));
    EXPECT_TRUE(manager.flush());
    EXPECT_TRUE(manager.removeEntry(m_group, m_key));
    EXPECT_EQ(m_listener.take(), Lines{});
}

TEST_F(SettingCallObserverTest, CallThatNobodyHearsTakesNothingFromTheHeap)
{
    if (!costs::CountsAllocations())
        GTEST_SKIP() << "the sanitizer has the heap";
    SETUP_SET_Manager manager(m_path, false);
    const QString value = QStringLiteral("value");
    manager.setSettingInfo(m_group, m_key, value, false);
    kub_appbase_set_call_observer(nullptr);
    QString read;
    const std::uint64_t before = costs::AllocationsNow();
    costs::counting = true;
    EXPECT_TRUE(manager.getSettingInfo(m_group, m_key, read, value, false));
    EXPECT_FALSE(manager.getSettingInfo(m_group, value, read, value, false));
    manager.setSettingInfo(m_group, m_key, value, false);
    EXPECT_FALSE(manager.removeEntry(m_group, value));
    costs::counting = false;
    EXPECT_EQ(costs::AllocationsNow(), before);
}

TEST_F(SettingCallObserverTest, FileThatCannotBeWrittenIsExplained)
{
    SETUP_SET_Manager manager(m_path, false);
    manager.setSettingInfo(m_group, m_key, m_key, false);
    ASSERT_TRUE(QDir().mkdir(m_path));
    const auto errorOutput = [&](bool showsReasons) {
        m_listener.showsReasons = showsReasons;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(manager.flush());
        return QString::fromStdString(testing::internal::GetCapturedStderr());
    };
    EXPECT_EQ(errorOutput(true), QString());
    EXPECT_EQ(m_listener.lines.back(), "flush null null: null -> null false");
    const QString reason = m_listener.reasons.back();
    EXPECT_TRUE(reason.startsWith(m_path + QStringLiteral(": cannot write the settings file: ")))
        << reason.toStdString();
    EXPECT_EQ(errorOutput(false), QStringLiteral("kubappbase: %1\n").arg(reason));
}

TEST_F(SettingCallObserverTest, FileThatCannotBeReadIsExplained)
{
    ASSERT_TRUE(QDir().mkdir(m_path));
    const SETUP_SET_Manager manager(m_path, false);
    EXPECT_EQ(m_listener.take(), Lines{"open null null: null -> null false"});
    EXPECT_TRUE(m_listener.reasons.back().contains(u"cannot read the settings file"))
        << m_listener.reasons.back().toStdString();
}

} // namespace
