// Our WBXML against an independent codec: the one of Debian's libwbxml2-utils. It does not stand
// hostile input, so it runs in a subprocess with limits, and only on messages of our own.

#include "decode_result.h"
#include "dtd_check.h"
#include "sample_messages.h"
#include "wbxml_codec.h"
#include "xml_codec.h"

#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>
#include <vector>

using namespace syncml;

namespace {

/// What `tool` writes when it is given `input`; at most 400 MB of memory and 20 seconds.
QByteArray converted(const QString &tool, const QStringList &options, const QByteArray &input)
{
    QProcess process;
    process.start(QStringLiteral("sh"),
                  QStringList{QStringLiteral("-c"),
                              QStringLiteral("ulimit -v 400000; exec timeout 20 \"$@\""),
                              QStringLiteral("sh"), tool} +
                      options +
                      QStringList{QStringLiteral("-o"), QStringLiteral("-"), QStringLiteral("-")});
    process.write(input);
    process.closeWriteChannel();
    constexpr int patienceMs = 30'000;
    if (!process.waitForFinished(patienceMs) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        ADD_FAILURE() << tool.toStdString() << ": exit status " << process.exitCode() << ' '
                      << process.readAllStandardError().toStdString();
    return process.readAllStandardOutput();
}

QByteArray xmlOf(const Message &message)
{
    const EncodeResult encoded = encodeXml(message);
    return *encoded;
}

/// All but those that the other codec is known to change: it puts Data into CDATA as it is, and
/// loses line ends.
std::vector<samples::Sample> samplesForOracle()
{
    std::vector<samples::Sample> samples = samples::allSamples();
    std::erase_if(samples, [](const samples::Sample &sample) {
        return sample.name == "EndOfData" || sample.name == "LineEnds";
    });
    return samples;
}

class Oracle : public testing::TestWithParam<samples::Sample> {
protected:
    static void SetUpTestSuite()
    {
        wbxmlToXml = QStandardPaths::findExecutable(QStringLiteral("wbxml2xml"));
        xmlToWbxml = QStandardPaths::findExecutable(QStringLiteral("xml2wbxml"));
    }

    void SetUp() override
    {
        if (wbxmlToXml.isEmpty() || xmlToWbxml.isEmpty())
            GTEST_SKIP() << "wbxml2xml and xml2wbxml are not installed (libwbxml2-utils)";
    }

    inline static QString wbxmlToXml;
    inline static QString xmlToWbxml;
};

TEST_P(Oracle, ReadsWhatWeWrite)
{
    const EncodeResult wbxml = encodeWbxml(GetParam().message);
    ASSERT_TRUE(wbxml);
    const QByteArray xml =
        converted(wbxmlToXml,
                  {QStringLiteral("-k"), QStringLiteral("-m"), QStringLiteral("2"),
                   QStringLiteral("-l"), QStringLiteral("SYNCML12")},
                  *wbxml);
    EXPECT_EQ(dtd_check::tree(xml), dtd_check::tree(xmlOf(GetParam().message)));
    EXPECT_EQ(dtd_check::firstFault(xml), "");
}

TEST_P(Oracle, WritesWhatWeRead)
{
    const QByteArray wbxml = converted(xmlToWbxml, {QStringLiteral("-k"), QStringLiteral("-n")},
                                       xmlOf(GetParam().message));
    EXPECT_EQ(decode_result::message(decodeWbxml(wbxml)), GetParam().message);
}

TEST_P(Oracle, WritesWhatWeReadWithAStringTable)
{
    const QByteArray wbxml =
        converted(xmlToWbxml, {QStringLiteral("-k")}, xmlOf(GetParam().message));
    EXPECT_EQ(decode_result::message(decodeWbxml(wbxml)), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Samples, Oracle, testing::ValuesIn(samplesForOracle()),
                         [](const auto &info) { return info.param.name; });

} // namespace
