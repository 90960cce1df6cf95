// What a browser may send, and who is kept out before anything of a body is kept.

#include "page_request.h"

#include <gtest/gtest.h>

namespace client {

namespace {

const PageDoor door = {"0123456789abcdef", "127.0.0.1:4000"};

QByteArray get(const QByteArray &target, const QByteArray &fields = {})
{
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:4000\r\n" + fields + "\r\n";
}

QByteArray post(const QByteArray &path, const QByteArray &body, const QByteArray &fields = {})
{
    return "POST /0123456789abcdef/" + path +
           " HTTP/1.1\r\nHost: 127.0.0.1:4000\r\nContent-Type: application/json\r\n"
           "Content-Length: " +
           QByteArray::number(body.size()) + "\r\n" + fields + "\r\n" + body;
}

/// 200 for a request that may be answered, the status of the refusal, 0 while something is missing.
int statusOf(const QByteArray &bytes)
{
    const auto request = PageRequestReader(door).take(bytes);
    return !request ? 0 : *request ? 200 : request->error().status;
}

TEST(PageRequest, PageIsAskedForWithItsToken)
{
    const auto request = PageRequestReader(door).take(get("/0123456789abcdef/"));
    ASSERT_TRUE(request && *request);
    EXPECT_EQ((*request)->method, "GET");
    EXPECT_EQ((*request)->path, "");
}

TEST(PageRequest, BodyComesWhole)
{
    const auto request = PageRequestReader(door).take(post("package", "{\"xml\":\"\"}"));
    ASSERT_TRUE(request && *request);
    EXPECT_EQ((*request)->path, "package");
    EXPECT_EQ((*request)->body, "{\"xml\":\"\"}");
}

TEST(PageRequest, ArrivesByteForByte)
{
    PageRequestReader reader(door);
    const QByteArray bytes = post("mount", "{}");
    for (qsizetype index = 0; index + 1 < bytes.size(); ++index)
        ASSERT_FALSE(reader.take(bytes.mid(index, 1))) << "after " << index;
    const auto request = reader.take(bytes.right(1));
    ASSERT_TRUE(request && *request);
    EXPECT_EQ((*request)->body, "{}");
}

TEST(PageRequest, NobodyGetsInWithoutTheToken)
{
    for (const char *target : {"/", "/0123456789abcdee/", "/0123456789abcdef", "//", "/events",
                               "/0123456789abcde/", "/0123456789abcdef0/", "/0123456789ABCDEF/",
                               "0123456789abcdef/", "http://127.0.0.1:4000/0123456789abcdef/",
                               "/x/../0123456789abcdef/", "/%30123456789abcdef/"})
        EXPECT_EQ(statusOf(get(target)), 404) << target;
}

TEST(PageRequest, NameThatWasBoundToTheAddressIsNotTheAddress)
{
    for (const char *host : {"rebound.example", "rebound.example:4000", "localhost:4000",
                             "127.0.0.1", "127.0.0.1:4001", "127.0.0.1:40000", "[::1]:4000", ""})
        EXPECT_EQ(
            statusOf("GET /0123456789abcdef/ HTTP/1.1\r\nHost: " + QByteArray(host) + "\r\n\r\n"),
            403)
            << host;
    EXPECT_EQ(statusOf("GET /0123456789abcdef/ HTTP/1.1\r\n\r\n"), 403);
}

TEST(PageRequest, OtherPagesAreKeptOut)
{
    for (const char *field : {"Origin: http://other.example", "Origin: null",
                              "Origin: http://127.0.0.1:4001", "Origin: https://127.0.0.1:4000",
                              "Sec-Fetch-Site: cross-site", "Sec-Fetch-Site: same-site"}) {
        EXPECT_EQ(statusOf(post("mount", "{}", field + QByteArray("\r\n"))), 403) << field;
        EXPECT_EQ(statusOf(get("/0123456789abcdef/", field + QByteArray("\r\n"))), 403) << field;
    }
    EXPECT_EQ(statusOf(post("mount", "{}",
                            "Origin: http://127.0.0.1:4000\r\nSec-Fetch-Site: same-origin\r\n")),
              200);
}

TEST(PageRequest, FormOfAnotherPageIsNotTaken)
{
    QByteArray bytes = post("mount", "{}");
    EXPECT_EQ(statusOf(bytes.replace("application/json", "text/plain")), 415);
}

TEST(PageRequest, StrangersAreRefusedBeforeTheirBodies)
{
    const QByteArray head = "POST /wrong/package HTTP/1.1\r\nHost: 127.0.0.1:4000\r\n"
                            "Content-Type: application/json\r\nContent-Length: 1000000\r\n\r\n";
    EXPECT_EQ(statusOf(head), 404);
}

TEST(PageRequest, IsBounded)
{
    const QByteArray endless(PageRequestReader::headBytes + 1, 'x');
    EXPECT_EQ(statusOf(endless), 431);
    EXPECT_EQ(statusOf(get("/0123456789abcdef/", "X: " + endless + "\r\n")), 431);
    const auto announcing = [](const QByteArray &size) {
        return "POST /0123456789abcdef/package HTTP/1.1\r\nHost: 127.0.0.1:4000\r\n"
               "Content-Type: application/json\r\nContent-Length: " +
               size + "\r\n\r\n";
    };
    EXPECT_EQ(statusOf(announcing(QByteArray::number(PageRequestReader::bodyBytes))), 0);
    EXPECT_EQ(statusOf(announcing(QByteArray::number(PageRequestReader::bodyBytes + 1))), 413);
    for (const char *size : {"-1", "+1", "1 1", "0x10", "", "99999999999999999999", "1,1"})
        EXPECT_EQ(statusOf(announcing(size)), 400) << size;
}

TEST(PageRequest, NothingIsReadInTwoWays)
{
    EXPECT_EQ(statusOf(post("mount", "{}", "Content-Length: 5\r\n")), 400);
    EXPECT_EQ(statusOf(post("mount", "{}", "Host: 127.0.0.1:4000\r\n")), 400);
    EXPECT_EQ(statusOf(post("mount", "{}", "Transfer-Encoding: chunked\r\n")), 501);
    EXPECT_EQ(statusOf(get("/0123456789abcdef/", "Content-Length: 3\r\n")), 400);
    EXPECT_EQ(statusOf(get("/0123456789abcdef/", " folded: 1\r\n")), 400);
    EXPECT_EQ(statusOf(get("/0123456789abcdef/", "no field\r\n")), 400);
    EXPECT_EQ(statusOf(get("/0123456789abcdef/", "X: a\rb\r\n")), 400);
    EXPECT_EQ(statusOf(get("/0123456789abcdef/") + get("/0123456789abcdef/")), 400);
    EXPECT_EQ(statusOf(post("mount", "{}") + "x"), 400);
    EXPECT_EQ(statusOf("GET  /0123456789abcdef/ HTTP/1.1\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET /0123456789abcdef/ HTTP/1.0\r\n\r\n"), 400);
    EXPECT_EQ(statusOf(QByteArray("\0\r\n\r\n", 5)), 400);
    EXPECT_EQ(statusOf("\r\n\r\n"), 400);
}

TEST(PageRequest, OnlyGetAndPostAreAnswered)
{
    for (const char *method : {"PUT", "DELETE", "HEAD", "OPTIONS", "get"})
        EXPECT_EQ(statusOf(get("/0123456789abcdef/").replace("GET", method)), 405) << method;
}

} // namespace

} // namespace client
