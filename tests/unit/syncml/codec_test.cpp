// What holds for both encodings alike.

#include "codec.h"
#include "dtd_check.h"
#include "encoding_name.h"
#include "sample_messages.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <tuple>

using namespace syncml;

namespace {

constexpr Encoding encodings[] = {Encoding::Xml, Encoding::Wbxml};

QByteArray encoded(const Message &message, Encoding encoding)
{
    EncodeResult result = encode(message, encoding);
    if (!result) {
        ADD_FAILURE() << result.error().text.toStdString();
        return {};
    }
    return *result;
}

std::string encodeErrorOf(const Message &message, Encoding encoding)
{
    const EncodeResult result = encode(message, encoding);
    return result ? "no error" : result.error().text.toStdString();
}

Message decoded(const QByteArray &bytes)
{
    DecodeResult result = decode(bytes);
    if (!result) {
        ADD_FAILURE() << result.error().toString().toStdString();
        return {};
    }
    return *result;
}

// ---- round trips

class RoundTrip : public testing::TestWithParam<std::tuple<samples::Sample, Encoding>> {};

TEST_P(RoundTrip, GivesTheSameMessage)
{
    const auto &[sample, encoding] = GetParam();
    EXPECT_EQ(decoded(encoded(sample.message, encoding)), sample.message);
}

INSTANTIATE_TEST_SUITE_P(Samples, RoundTrip,
                         testing::Combine(testing::ValuesIn(samples::allSamples()),
                                          testing::ValuesIn(encodings)),
                         [](const auto &info) {
                             return std::get<0>(info.param).name +
                                    encodingName(std::get<1>(info.param));
                         });

class OrderOfElements : public testing::TestWithParam<samples::Sample> {};

TEST_P(OrderOfElements, IsThatOfTheDTD)
{
    EXPECT_EQ(dtd_check::firstFault(encoded(GetParam().message, Encoding::Xml)), "");
}

INSTANTIATE_TEST_SUITE_P(Samples, OrderOfElements, testing::ValuesIn(samples::allSamples()),
                         [](const auto &info) { return info.param.name; });

TEST(DtdCheck, FindsAWrongOrder)
{
    const QByteArray good = encoded(samples::allSamples().front().message, Encoding::Xml);
    ASSERT_EQ(dtd_check::firstFault(good), "");
    QByteArray bad = good;
    bad.replace("<VerDTD>1.2</VerDTD>", "");
    EXPECT_NE(dtd_check::firstFault(bad), "");
    bad = good;
    bad.replace(" xmlns=\"syncml:metinf\"", "");
    EXPECT_NE(dtd_check::firstFault(bad), "");
}

TEST(Codecs, GiveTheSameStructsForTheSameMessage)
{
    for (const samples::Sample &sample : samples::allSamples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(decoded(encoded(sample.message, Encoding::Xml)),
                  decoded(encoded(sample.message, Encoding::Wbxml)));
    }
}

TEST(Samples, HoldEveryKindOfCommandAndDifferFromEachOther)
{
    const std::vector<samples::Sample> all = samples::allSamples();
    for (std::size_t left = 0; left < all.size(); ++left) {
        for (std::size_t right = left + 1; right < all.size(); ++right)
            EXPECT_FALSE(all[left].message == all[right].message)
                << all[left].name << " and " << all[right].name;
    }
    QByteArray everything;
    for (const samples::Sample &sample : all)
        everything += encoded(sample.message, Encoding::Xml);
    for (const char *const name :
         {"Add",       "Alert",      "Atomic",     "Copy",       "Delete",   "Exec",
          "Get",       "Replace",    "Results",    "Sequence",   "Status",   "Chal",
          "Cmd",       "CmdID",      "CmdRef",     "Correlator", "Cred",     "Data",
          "EMI",       "Final",      "Format",     "Item",       "LocName",  "LocURI",
          "Mark",      "MaxMsgSize", "MaxObjSize", "Meta",       "MoreData", "MsgID",
          "MsgRef",    "NextNonce",  "RespURI",    "SessionID",  "Size",     "Source",
          "SourceRef", "SyncBody",   "SyncHdr",    "SyncML",     "Target",   "TargetRef",
          "Type",      "VerDTD",     "VerProto"}) {
        const QByteArray start = QByteArray("<") + name;
        EXPECT_TRUE(everything.contains(start + ">") || everything.contains(start + " ") ||
                    everything.contains(start + "/"))
            << name;
    }
}

// ---- recognition

TEST(Recognition, GoesByTheFirstBytes)
{
    EXPECT_EQ(recogniseEncoding("<SyncML/>"), Encoding::Xml);
    EXPECT_EQ(recogniseEncoding("<?xml version=\"1.0\"?><SyncML/>"), Encoding::Xml);
    EXPECT_EQ(recogniseEncoding("\r\n\t <SyncML/>"), Encoding::Xml);
    EXPECT_EQ(recogniseEncoding("\xEF\xBB\xBF<SyncML/>"), Encoding::Xml);
    EXPECT_EQ(recogniseEncoding("\xEF\xBB\xBF \n<SyncML/>"), Encoding::Xml);
    EXPECT_EQ(recogniseEncoding(QByteArray("\x01\xA4\x01\x6A", 4)), Encoding::Wbxml);
    EXPECT_EQ(recogniseEncoding(QByteArray("\x02\xA4\x01\x6A", 4)), Encoding::Wbxml);
    EXPECT_EQ(recogniseEncoding(QByteArray("\x03\x00\x00\x6A", 4)), Encoding::Wbxml);
    EXPECT_EQ(recogniseEncoding(""), std::nullopt);
    EXPECT_EQ(recogniseEncoding("SyncML"), std::nullopt);
    EXPECT_EQ(recogniseEncoding("\xFF\xFE<\0"), std::nullopt);
    EXPECT_EQ(recogniseEncoding("{}"), std::nullopt);
    EXPECT_EQ(recogniseEncoding("\x0F"), Encoding::Wbxml);
    EXPECT_EQ(recogniseEncoding("\x10"), std::nullopt);
}

TEST(Recognition, RefusesWhatIsNeither)
{
    const DecodeResult text = decode("HTTP/1.1 200 OK");
    ASSERT_FALSE(text);
    EXPECT_EQ(text.error().status, 415);
    EXPECT_EQ(text.error().text, u"the message is neither XML nor WBXML");

    const DecodeResult empty = decode("");
    ASSERT_FALSE(empty);
    EXPECT_EQ(empty.error().status, 400);
    EXPECT_EQ(empty.error().text, u"the message is empty");
}

// ---- what is not written

class NotWritten : public testing::TestWithParam<Encoding> {
protected:
    static Message sample(const char *name)
    {
        const std::vector<samples::Sample> all = samples::allSamples();
        return std::ranges::find(all, name, &samples::Sample::name)->message;
    }
};

TEST_P(NotWritten, MessageWithoutACommand)
{
    Message message = sample("Add");
    message.commands.clear();
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "the message has no command");
}

TEST_P(NotWritten, CommandWithoutCmdID)
{
    Message message = sample("Add");
    message.commands.front().cmdId.reset();
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Add has no CmdID");
}

TEST_P(NotWritten, CommandWithoutAnItem)
{
    Message message = sample("Add");
    message.commands.front().items.clear();
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Add 1 has no Item");
}

TEST_P(NotWritten, ExecOfTwoItems)
{
    Message message = sample("Exec");
    message.commands.front().items.emplace_back();
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Exec 5 has more than one Item");
}

TEST_P(NotWritten, StatusThatLacksAnyOfItsMandatoryParts)
{
    const Message whole = sample("FullStatus");
    for (const auto &[name, remove] :
         std::initializer_list<std::pair<const char *, void (*)(Command &)>>{
             {"MsgRef", [](Command &status) { status.msgRef.reset(); }},
             {"CmdRef", [](Command &status) { status.cmdRef.reset(); }},
             {"Cmd", [](Command &status) { status.cmd.reset(); }},
             {"Data", [](Command &status) { status.data.reset(); }}}) {
        Message message = whole;
        remove(message.commands.front());
        EXPECT_EQ(encodeErrorOf(message, GetParam()), std::string("Status 1 has no ") + name);
    }
}

TEST_P(NotWritten, PartThatTheCommandDoesNotHave)
{
    const Message whole = sample("Add");
    for (const auto &[name, add] :
         std::initializer_list<std::pair<const char *, void (*)(Command &)>>{
             {"MsgRef", [](Command &command) { command.msgRef.emplace(); }},
             {"CmdRef", [](Command &command) { command.cmdRef.emplace(); }},
             {"Cmd", [](Command &command) { command.cmd.emplace(); }},
             {"TargetRef", [](Command &command) { command.targetRefs.emplace_back(); }},
             {"SourceRef", [](Command &command) { command.sourceRefs.emplace_back(); }},
             {"Chal", [](Command &command) { command.chal.emplace(); }},
             {"Data", [](Command &command) { command.data.emplace(); }},
             {"Correlator", [](Command &command) { command.correlator.emplace(); }},
             {"commands in it", [](Command &command) { command.commands.emplace_back(); }}}) {
        Message message = whole;
        add(message.commands.front());
        EXPECT_EQ(encodeErrorOf(message, GetParam()), std::string("Add 1 cannot have ") + name);
    }
    Message alert = sample("PlainAlert");
    alert.commands.front().meta.emplace();
    EXPECT_EQ(encodeErrorOf(alert, GetParam()), "Alert 1 cannot have Meta");
}

TEST_P(NotWritten, SecondReferenceOfResults)
{
    Message message = sample("FullResults");
    message.commands.front().targetRefs.emplace_back();
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Results 12 has more than one TargetRef");
}

TEST_P(NotWritten, SequenceWithoutACommand)
{
    Message message = sample("NestedCommands");
    message.commands.front().commands.clear();
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Sequence 1 has no command in it");
}

TEST_P(NotWritten, AnswerInsideASequence)
{
    for (const auto &[name, error] : std::initializer_list<std::pair<const char *, const char *>>{
             {"FullStatus", "Status inside Sequence"},
             {"FullResults", "Results inside Sequence"}}) {
        Message message = sample("NestedCommands");
        message.commands.front().commands.push_back(sample(name).commands.front());
        EXPECT_EQ(encodeErrorOf(message, GetParam()), error);
    }
}

TEST_P(NotWritten, ElementThatIsNoDMCommand)
{
    Message message = sample("Add");
    message.commands.front() = Command();
    message.commands.front().kind = CommandKind::Unsupported;
    message.commands.front().name = QStringLiteral("Map");
    message.commands.front().cmdId = QStringLiteral("9");
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Map 9 is not a DM command");
    message.commands.front().kind = CommandKind::Unknown;
    EXPECT_EQ(encodeErrorOf(message, GetParam()), "Map 9 is not a DM command");
}

TEST_P(NotWritten, TextWithACharacterThatXMLDoesNotKnow)
{
    for (const QString &text :
         {QStringLiteral("a\u0001b"), QString(QChar(0xD800)), QString(QChar(0xDC00)) + u'x',
          QString(QChar(0xFFFE)), QStringLiteral("nul") + QChar(QChar::Null)}) {
        Message message = sample("Add");
        message.commands.front().items.front().target->locUri = text;
        EXPECT_EQ(encodeErrorOf(message, GetParam()),
                  "Add 1 has a LocURI that cannot be written as text");
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, NotWritten, testing::ValuesIn(encodings),
                         [](const auto &info) { return encodingName(info.param); });

} // namespace
