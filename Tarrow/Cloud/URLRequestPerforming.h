#pragma once

#include "Cloud/Cancellation.h"

#include <QByteArray>
#include <QUrl>

#include <QCoro/QCoroTask>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace kelvo {

/// One complete HTTP request.
struct HTTPRequest {
    QByteArray method = "GET";
    QUrl url;
    std::vector<std::pair<QByteArray, QByteArray>> headers;
    std::optional<QByteArray> body;
    /// Longest silence from the server before the request fails.
    std::chrono::milliseconds timeout{60'000};
    /// The largest answer taken; a longer one fails the request instead of filling memory.
    qint64 maximumResponseBytes = 64 * 1024 * 1024;

    friend bool operator==(const HTTPRequest&, const HTTPRequest&) = default;
};

struct HTTPResponse {
    /// Absent when the answer was not an HTTP response.
    std::optional<int> statusCode;
    QByteArray body;
};

/// The request never got an answer: no network, refused, timed out, TLS failed. The text never
/// carries the request's address or headers, so no token reaches a log or status line.
class TransportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The HTTP transport under the cloud client: the platform session in production, a fake in
/// tests. Fails with TransportError, or FlowCancelled when `cancel` fires first.
class URLRequestPerforming {
public:
    virtual ~URLRequestPerforming() = default;
    virtual QCoro::Task<HTTPResponse> data(HTTPRequest request, CancellationToken cancel) = 0;
};

} // namespace kelvo
