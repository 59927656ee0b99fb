#include "ModelProbe.h"
#include "RewriteServer.h"
#include "ServerConfig.h"
#include "ServerLog.h"
#include "TokenStore.h"
#include "Upstream.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QProcessEnvironment>

#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <systemd/sd-daemon.h>

using namespace Qt::StringLiterals;

namespace {

// Without an upstream of its own the server takes a model server it finds on this
// machine (the configured model where one has it, else the first model listed), so
// that a machine with Ollama rewrites without any setting.
void adoptLocalModelServer(ServerConfig &config)
{
    ModelProbe probe(ModelProbe::candidatesFromEnvironment());
    QObject::connect(&probe, &ModelProbe::finished, QCoreApplication::instance(), &QCoreApplication::quit);
    probe.start();
    QCoreApplication::exec(); // until the probe is done; nothing else runs yet
    const QList<ModelList> found = probe.found();
    const ModelList *chosen = nullptr;
    for (const ModelList &server : found) {
        if (!config.model.isEmpty() && server.models.contains(config.model)) {
            chosen = &server;
            break;
        }
        if (!chosen && !server.models.isEmpty())
            chosen = &server;
    }
    if (!chosen) {
        serverLog(u"no upstream_url set and no model server with a model found on this machine"_s);
        return;
    }
    config.upstreamUrl = chosen->base.toString();
    if (!chosen->models.contains(config.model))
        config.model = chosen->models.first();
    serverLog(u"upstream found on this machine: %1 at %2, model %3"_s.arg(
        chosen->serverName.isEmpty() ? u"a model server"_s : chosen->serverName, config.upstreamUrl,
        config.model));
}

// `tessary-server token add NAME | list | revoke NAME`: the tokens file, edited while
// the server runs; it notices within a second or two.
int tokenCommand(const ServerConfig &config, const QStringList &words)
{
    const QString verb = words.value(1);
    TokenStore store(config.tokensFile);
    if (!store.load()) {
        std::fprintf(stderr, "tessary-server: %s\n", qPrintable(store.error()));
        return 1;
    }
    if (verb == "list"_L1 && words.size() == 2) {
        for (const TokenStore::Entry &entry : store.entries())
            std::printf("%s\t%s\n", qPrintable(entry.name), qPrintable(entry.created.toString(Qt::ISODate)));
        return 0;
    }
    if (verb == "add"_L1 && words.size() == 3) {
        const QString token = store.add(words[2]);
        if (token.isEmpty()) {
            std::fprintf(stderr, "tessary-server: %s\n", qPrintable(store.error()));
            return 1;
        }
        // Shown this once and never stored: only its hash is in the file.
        std::printf("token for %s (shown only now; give it to them as Tessary's API key):\n%s\n",
            qPrintable(words[2]), qPrintable(token));
        return 0;
    }
    if (verb == "revoke"_L1 && words.size() == 3) {
        if (!store.revoke(words[2])) {
            std::fprintf(stderr, "tessary-server: %s\n", qPrintable(store.error()));
            return 1;
        }
        std::printf("revoked the token of %s\n", qPrintable(words[2]));
        return 0;
    }
    std::fprintf(stderr, "usage: tessary-server token add NAME | token list | token revoke NAME\n");
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    // Blocked before anything can start a thread: every thread then leaves SIGINT and
    // SIGTERM to the main thread, which waits for them and stops the server as ordinary
    // code, not inside a signal handler. A token command ends before it would wait.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

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
    if (const QStringList words = loaded.positional; !words.isEmpty()) {
        if (words.first() == "token"_L1)
            return tokenCommand(config, words);
        std::fprintf(
            stderr, "tessary-server: unknown command \"%s\" (try --help)\n", qPrintable(words.first()));
        return 2;
    }

    const QString tokenPath = defaultConfigDirectory(environment) + u"/client-token"_s;
    const TokenResult token = settleClientToken(config, tokenPath);
    if (!token.error.isEmpty()) {
        std::fprintf(stderr, "tessary-server: %s\n", qPrintable(token.error));
        return 1;
    }
    if (token.created) {
        // Said once; the token itself stays in the file, out of terminals and logs.
        std::printf("\ntessary-server created the client token Tessary must send, in\n\n    %s\n\n"
                    "(readable by you only). Tessary on this machine reads it from there; elsewhere,\n"
                    "enter it as the API key in Tessary's Settings. Delete the file to get a new one.\n\n",
            qPrintable(tokenPath));
        std::fflush(stdout);
    }
    if (config.noClientToken)
        serverLog(
            u"warning: running without a client token: every program on this machine may use the model"_s);

    if (config.upstreamUrl.isEmpty())
        adoptLocalModelServer(config);
    RewriteServer server(config);
    // Started by a systemd socket unit: the socket is already listening, and stays open
    // across restarts, so no connection is refused in between.
    const int handedOver = sd_listen_fds(1);
    if (handedOver > 1) {
        std::fprintf(stderr, "tessary-server: expected one socket from systemd, got %d\n", handedOver);
        return 1;
    }
    if (handedOver == 1 ? !server.adopt(SD_LISTEN_FDS_START) : !server.bind()) {
        std::fprintf(stderr, "tessary-server: %s\n", qPrintable(server.error()));
        return 1;
    }
    const QHostAddress address(config.listenAddress);
    if (!address.isLoopback() && config.listenAddress != "localhost"_L1 && config.tlsCert.isEmpty())
        serverLog(u"warning: listening on %1, reachable from other machines; put TLS in front of it"_s.arg(
            config.listenAddress));
    serverLog(u"tessary-server %1 listening on %2://%3:%4/api/v1"_s
                  .arg(QString::fromLatin1(TESSARY_SERVER_VERSION),
                      config.tlsCert.isEmpty() ? u"http"_s : u"https"_s, config.listenAddress)
                  .arg(server.port()));
    if (const QString problem = upstreamUrlProblem(config.upstreamUrl); !problem.isEmpty())
        serverLog(u"warning: "_s + problem);
    else
        serverLog(u"upstream %1, model %2"_s.arg(shownUpstreamUrl(config.upstreamUrl),
            config.model.isEmpty() ? u"(the upstream's default)"_s : config.model));
    if (config.verbose)
        serverLog(u"verbose: request texts and samples will be logged"_s);

    server.start();
    sd_notify(0, "READY=1");
    int received = 0;
    sigwait(&stopSignals, &received);
    sd_notify(0, "STOPPING=1");
    serverLog(
        u"stopping: no new connections; running rewrites have %1 s to finish"_s.arg(config.drainSeconds));
    server.stop(std::chrono::seconds(config.drainSeconds));
    serverLog(u"tessary-server stopped"_s);
    return 0;
}
