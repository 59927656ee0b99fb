#pragma once

#include "Prompt.h"

#include <QByteArrayView>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

// Everything tessary-server can be told, with the defaults a single user on one machine
// wants: loopback only, a generated client token, no upstream until one is set.
struct ServerConfig
{
    QString upstreamUrl; // OpenAI-compatible base, e.g. http://localhost:11434/v1
    QStringList fallbackUrls; // tried in order when the one before refuses or fails before any text
    QString model; // empty: the upstream's own default, where it has one
    QString upstreamKey; // sent to the upstream as a bearer token when not empty
    QString listenAddress = QStringLiteral("127.0.0.1");
    int port = 8787;
    QString clientToken; // what Tessary must send; filled from the token file when unset
    bool noClientToken = false; // only ever on a loopback address: every local client is let in
    int sampleBudget = defaultSampleBudget; // characters of writing samples put into one prompt
    qint64 maxBodyBytes = 512 * 1024;
    int maxHeaderBytes = 16 * 1024;
    int maxStreams = 256; // rewrites streamed at the same time
    int maxStreamsPerToken = 0; // by one token at the same time; 0: no limit
    int requestsPerMinutePerToken = 0; // rewrites one token may start per minute; 0: no limit
    QString tokensFile; // a token per person, hashed; empty: <config dir>/tokens
    QString metricsToken; // when set, /metrics wants it as a bearer token
    int drainSeconds = 30; // on SIGTERM, how long running streams may go on
    QString tlsCert; // PEM files: with both set, clients speak HTTPS
    QString tlsKey;
    int idleTimeoutSeconds = 60; // a client connection with nothing moving is closed
    int requestHeadSeconds = 10; // a request's line and headers must arrive whole within this
    int maxHeaderFields = 100;
    int maxConnections = 512; // open client connections, refused with 503 beyond this
    int maxConnectionsPerAddress = 256; // from one client address
    int upstreamTimeoutSeconds = 300; // a model may take long to load before its first token
    QString releaseVersion; // served on /version; empty: this server's own version
    QString releaseDownloadUrl;
    QString releaseNotes;
    QString releaseMinimumVersion;
    bool releaseForceUpdate = false;
    bool verbose = false;
    QString configFile; // where the settings were read from

    // Not settings an administrator needs; each holds its production value.
    int tokensPollMilliseconds = 1000; // how often the tokens file is looked at
    int rateWindowMilliseconds = 60 * 1000; // the minute of requests_per_minute_per_token
    int readinessProbeMilliseconds = 10 * 1000; // how often the model servers list their models
    int readyWindowMilliseconds = 30 * 1000; // a model list older than this means not ready
    int upstreamCoolDownMilliseconds = 30 * 1000; // a failed model server is skipped this long
};

struct ConfigResult
{
    std::optional<ServerConfig> config;
    QString error; // for the user when config is absent
    bool exitEarly = false; // --help or --version was answered
    QStringList positional; // a command and its words, e.g. token add NAME
};

// Defaults, then the config file, then TESSARY_SERVER_* environment variables, then
// command-line flags: each later source wins. `environment` is in "NAME=value" form.
ConfigResult loadServerConfig(const QStringList &arguments, const QStringList &environment);

// Applies a config file's settings to `config`: TOML, top-level keys with the options'
// names. Returns an error naming `source` and the line, or nothing when all was read.
// The names of the settings found are added to `found`.
QString readConfigText(
    QByteArrayView text, const QString &source, ServerConfig &config, QSet<QString> &found);

// $XDG_CONFIG_HOME/tessary-server (or ~/.config/tessary-server).
QString defaultConfigDirectory(const QStringList &environment);

struct TokenResult
{
    bool created = false; // a new token was generated and written
    QString error;
};

// Makes `path` hold the token the server will accept, so Tessary on this machine can pair
// by reading it: a configured token is written there (mode 0600); without one, the token
// is read from the file, or generated (32 random bytes) when there is none yet. Nothing
// happens when the server runs without a token.
TokenResult settleClientToken(ServerConfig &config, const QString &path);
