#include "RewriteServer.h"
#include "ServerConfig.h"
#include "ServerLog.h"
#include "Upstream.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QProcessEnvironment>

#include <csignal>
#include <cstdio>
#include <pthread.h>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"tessary-server"_s);
    QCoreApplication::setApplicationVersion(QString::fromLatin1(TESSARY_SERVER_VERSION));

    const QStringList environment = QProcessEnvironment::systemEnvironment().toStringList();
    ConfigResult loaded = loadServerConfig(QCoreApplication::arguments(), environment);
    if (loaded.exitEarly)
        return 0;
    if (!loaded.config) {
        std::fprintf(stderr, "tessary-server: %s\n", qPrintable(loaded.error));
        return 2;
    }
    ServerConfig config = *loaded.config;

    if (config.clientToken.isEmpty()) {
        const QString tokenPath = defaultConfigDirectory(environment) + u"/client-token"_s;
        const TokenResult token = loadOrCreateClientToken(tokenPath);
        if (!token.error.isEmpty()) {
            std::fprintf(stderr, "tessary-server: %s\n", qPrintable(token.error));
            return 1;
        }
        config.clientToken = token.token;
        if (token.created) {
            // Shown this once; afterwards it is in the file for whoever owns it.
            std::printf("\ntessary-server created a client token for Tessary:\n\n    %s\n\n"
                        "Open Tessary's Settings and paste it as the API key. It is kept in %s\n"
                        "(readable by you only); delete that file to get a new one.\n\n",
                qPrintable(token.token), qPrintable(tokenPath));
            std::fflush(stdout);
        }
    }

    // Threads started from here on leave SIGINT and SIGTERM to the main thread, which waits
    // for them and stops the server as ordinary code, not inside a signal handler.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    RewriteServer server(config);
    if (!server.bind()) {
        std::fprintf(stderr, "tessary-server: %s\n", qPrintable(server.error()));
        return 1;
    }
    const QHostAddress address(config.listenAddress);
    if (!address.isLoopback() && config.listenAddress != "localhost"_L1)
        serverLog(u"warning: listening on %1, reachable from other machines; put TLS in front of it"_s.arg(
            config.listenAddress));
    serverLog(u"tessary-server %1 listening on http://%2:%3/api/v1"_s
                  .arg(QString::fromLatin1(TESSARY_SERVER_VERSION), config.listenAddress)
                  .arg(server.port()));
    if (const QString problem = upstreamUrlProblem(config.upstreamUrl); !problem.isEmpty())
        serverLog(u"warning: "_s + problem);
    else
        serverLog(u"upstream %1, model %2"_s.arg(
            config.upstreamUrl, config.model.isEmpty() ? u"(the upstream's default)"_s : config.model));
    if (config.verbose)
        serverLog(u"verbose: request texts and samples will be logged"_s);

    server.start();
    int received = 0;
    sigwait(&stopSignals, &received);
    server.stop();
    serverLog(u"tessary-server stopped"_s);
    return 0;
}
