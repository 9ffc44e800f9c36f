#include "DevCloud.h"
#include "DevCloudServer.h"
#include "FaultInjector.h"
#include "Options.h"
#include "ShowCatalog.h"
#include "StateFile.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

using namespace kelvo::devcloud;

namespace {

int fail(const QString& text) {
    std::fprintf(stderr, "kelvo-devcloud: %s\n", qPrintable(text));
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kelvo-devcloud"));
    // A test that closes our stdout must not end the server.
    std::signal(SIGPIPE, SIG_IGN);

    const auto parsed = parseOptions(QCoreApplication::arguments());
    if (const auto* error = std::get_if<OptionsError>(&parsed)) {
        if (error->helpRequested) {
            std::printf("%s", qPrintable(error->text));
            return 0;
        }
        return fail(error->text);
    }
    const Options& options = std::get<Options>(parsed);

    auto catalog = loadCatalog(options.dataDirectory);
    if (const auto* error = std::get_if<QString>(&catalog))
        return fail(*error);
    auto state = loadState(options.statePath);
    if (const auto* error = std::get_if<QString>(&state))
        return fail(*error);

    FaultInjector faults;
    for (const QString& fault : options.faults)
        if (const auto error = faults.addFromArgument(fault))
            return fail(*error);

    DevCloud cloud(std::get<ShowCatalog>(std::move(catalog)),
                   std::get<PersistedState>(std::move(state)),
                   {options.statePath, options.autoApprove, options.pairingTtlSeconds});
    for (const QString& token : options.deviceTokens)
        cloud.addDevice(token.toStdString(), false);
    for (const QString& token : options.revokedTokens)
        cloud.addDevice(token.toStdString(), true);

    DevCloudServer server(cloud, faults,
                          {{options.apiVersion, options.publishedApiVersion, options.appDownloadUrl,
                            options.harnessDirectory},
                           options.adminSecret});
    if (const auto error = server.listen(options.listenAddress, options.port))
        return fail(*error);
    // Tests read the port from this line.
    std::printf("listening on http://%s\n",
                qPrintable(authority(options.listenAddress, server.port())));
    std::fflush(stdout);
    return QCoreApplication::exec();
}
