#pragma once

#include "observer/NetworkTransport.h"
#include "support/HttpTestServer.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include <gtest/gtest.h>

namespace ostrel {

/// The real transport with time that the test makes pass.
class TransportRig : public testing::Test
{
protected:
    using Answer = Result<HttpAnswer>;
    using Request = HttpTestServer::Request;

    ~TransportRig() override { settleEvents(); }

    Answer send(HttpRequest request)
    {
        const auto answer = runTask<Answer>([&](std::stop_token stop) { return m_transport.send(request, stop); });
        EXPECT_TRUE(answer.has_value()) << "the request never ended";
        return answer.value_or(std::unexpected(Error{}));
    }
    Answer get(const QUrl &url) { return send({.method = "GET", .url = url, .headers = {}, .body = {}}); }

    ManualClock m_clock{[] { settleEvents(); }};
    NetworkTransport m_transport{m_clock};
};

} // namespace ostrel
