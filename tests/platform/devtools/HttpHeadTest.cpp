#include "platform/devtools/HttpExchange.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

TEST(ParseHttpHead, statusAndHeaders_areReadWithNamesInLowerCase)
{
    EXPECT_EQ(parseHttpHead("HTTP/1.1 200 OK\r\nContent-Length:12\r\nX-Y:  a: b "),
              (HttpHead{.status = 200, .headers = {{"content-length", "12"}, {"x-y", "a: b"}}}));
    EXPECT_EQ(parseHttpHead("HTTP/1.0 404"), (HttpHead{.status = 404, .headers = {}}));
}

TEST(ParseHttpHead, whatIsNoAnswer_isRefused)
{
    for (const char *head :
         {"", "\r\n", "200", "HTTP/2 200 OK", "HTTP/1.1", "HTTP/1.1 ", "HTTP/1.1 2000 OK", "HTTP/1.1 abc OK",
          "HTTP/1.1 200 OK\r\nno colon", "HTTP/1.1 200 OK\r\n: no name", "SSH-2.0-OpenSSH_9.2"})
        EXPECT_EQ(parseHttpHead(head), std::nullopt) << head;
}

TEST(ParseHttpHead, headerThatStandsTwice_isRefused)
{
    EXPECT_EQ(parseHttpHead("HTTP/1.1 200 OK\r\nContent-Length: 1\r\ncontent-length: 2"), std::nullopt);
}

} // namespace
} // namespace ostrel
