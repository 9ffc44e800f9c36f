#include "Cloud/FakeURLSession.h"
#include "Cloud/QtURLSession.h"
#include "support/QtEventLoop.h"

#include <QTcpServer>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

// A fresh process: nothing has loaded the TLS backend yet, so the request waits for the worker
// that loads it, then goes out.
TEST(SecureRequest, OneMadeBeforeTheTlsBackendIsLoadedStillGoesOut) {
    test::qtApplication();
    quint16 port = 0;
    {
        QTcpServer closed;
        ASSERT_TRUE(closed.listen(QHostAddress::LocalHost, 0));
        port = closed.serverPort();
    }
    QtURLSession session;
    HTTPRequest request;
    request.url = QUrl(QStringLiteral("https://127.0.0.1:%1/api/health").arg(port));
    request.timeout = std::chrono::seconds(5);
    try {
        test::finish(session.data(request, {}));
        ADD_FAILURE() << "nothing listens there";
    } catch (const TransportError& error) {
        EXPECT_STREQ(error.what(), "Connection refused");
    }
}

} // namespace
} // namespace kelvo
