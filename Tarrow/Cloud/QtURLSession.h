#pragma once

#include "Cloud/TlsWarmUp.h"
#include "Cloud/URLRequestPerforming.h"

#include <memory>

class QNetworkAccessManager;

namespace kelvo {

/// URLRequestPerforming over QNetworkAccessManager on the calling thread's event loop; TLS is
/// verified and redirects are not followed. Use it on the thread that made it.
class QtURLSession final : public URLRequestPerforming {
public:
    QtURLSession();
    ~QtURLSession() override;

    QCoro::Task<HTTPResponse> data(HTTPRequest request, CancellationToken cancel) override;

private:
    std::unique_ptr<QNetworkAccessManager> manager_;
    TlsWarmUp tls_; // last: its worker is joined first
};

} // namespace kelvo
