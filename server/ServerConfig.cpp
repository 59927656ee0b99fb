#include "ServerConfig.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <toml++/toml.h>

using namespace Qt::StringLiterals;

namespace {

// What a setting holds, which is also the TOML type its config file entry must have.
enum class Kind { Text, Number, Boolean };

// One setting, known under the same name in the config file, the environment
// (TESSARY_SERVER_ + upper case) and on the command line (-- + dashes).
struct Option
{
    QString key;
    QString valueName; // empty: a flag without a value
    QString description;
    Kind kind;
    std::function<QString(ServerConfig &, const QString &)> apply; // error text or empty
};

QString flagName(const QString &key)
{
    return QString(key).replace(u'_', u'-');
}
QString envName(const QString &key)
{
    return u"TESSARY_SERVER_"_s + key.toUpper();
}

std::function<QString(ServerConfig &, const QString &)> text(QString ServerConfig::*field)
{
    return [field](ServerConfig &config, const QString &value) {
        config.*field = value; // as written: a token or key may hold any character
        return QString();
    };
}

template<typename Int>
std::function<QString(ServerConfig &, const QString &)> number(
    Int ServerConfig::*field, qint64 min, qint64 max)
{
    return [field, min, max](ServerConfig &config, const QString &value) {
        bool ok = false;
        const qint64 n = value.trimmed().toLongLong(&ok);
        if (!ok || n < min || n > max)
            return u"expected a whole number from %1 to %2, got \"%3\""_s.arg(min).arg(max).arg(value);
        config.*field = static_cast<Int>(n);
        return QString();
    };
}

std::function<QString(ServerConfig &, const QString &)> boolean(bool ServerConfig::*field)
{
    return [field](ServerConfig &config, const QString &value) {
        const QString v = value.trimmed().toLower();
        if (v == "true"_L1 || v == "1"_L1 || v == "yes"_L1)
            config.*field = true;
        else if (v == "false"_L1 || v == "0"_L1 || v == "no"_L1)
            config.*field = false;
        else
            return u"expected true or false, got \"%1\""_s.arg(value);
        return QString();
    };
}

const QList<Option> &options()
{
    static const QList<Option> all = {
        { u"upstream_url"_s, u"url"_s,
            u"OpenAI-compatible base URL of the language model server, e.g. http://localhost:11434/v1"_s,
            Kind::Text, text(&ServerConfig::upstreamUrl) },
        { u"model"_s, u"name"_s, u"Model name sent to the upstream"_s, Kind::Text,
            text(&ServerConfig::model) },
        { u"upstream_key"_s, u"key"_s, u"API key for the upstream (sent as a bearer token)"_s, Kind::Text,
            text(&ServerConfig::upstreamKey) },
        { u"listen_address"_s, u"address"_s, u"Address to listen on (default 127.0.0.1)"_s, Kind::Text,
            text(&ServerConfig::listenAddress) },
        { u"port"_s, u"port"_s, u"Port to listen on (default 8787)"_s, Kind::Number,
            number(&ServerConfig::port, 0, 65535) },
        { u"client_token"_s, u"token"_s,
            u"Token clients must send (default: generated and kept in client-token)"_s, Kind::Text,
            text(&ServerConfig::clientToken) },
        { u"sample_budget"_s, u"chars"_s,
            u"Characters of writing samples per prompt, newest kept (default 6000)"_s, Kind::Number,
            number(&ServerConfig::sampleBudget, 0, 1000000) },
        { u"max_body_bytes"_s, u"bytes"_s, u"Largest request body accepted (default 524288)"_s, Kind::Number,
            number(&ServerConfig::maxBodyBytes, 1024, 64 * 1024 * 1024) },
        { u"max_header_bytes"_s, u"bytes"_s, u"Largest total size of request headers (default 16384)"_s,
            Kind::Number, number(&ServerConfig::maxHeaderBytes, 1024, 1024 * 1024) },
        { u"max_streams"_s, u"count"_s, u"Rewrites streamed at the same time (default 256)"_s, Kind::Number,
            number(&ServerConfig::maxStreams, 1, 100000) },
        { u"max_connections"_s, u"count"_s, u"Open client connections (default 512)"_s, Kind::Number,
            number(&ServerConfig::maxConnections, 1, 100000) },
        // Behind a load balancer every connection comes from its address.
        { u"max_connections_per_address"_s, u"count"_s,
            u"Open connections from one client address (default 256)"_s, Kind::Number,
            number(&ServerConfig::maxConnectionsPerAddress, 1, 100000) },
        { u"max_streams_per_token"_s, u"count"_s,
            u"Rewrites one token may stream at the same time (default 0: no limit)"_s, Kind::Number,
            number(&ServerConfig::maxStreamsPerToken, 0, 4096) },
        { u"requests_per_minute_per_token"_s, u"count"_s,
            u"Rewrites one token may start per minute (default 0: no limit)"_s, Kind::Number,
            number(&ServerConfig::requestsPerMinutePerToken, 0, 1000000) },
        { u"tokens_file"_s, u"file"_s,
            u"Tokens per person, hashed (default $XDG_CONFIG_HOME/tessary-server/tokens)"_s, Kind::Text,
            text(&ServerConfig::tokensFile) },
        { u"metrics_token"_s, u"token"_s, u"Token /metrics asks for (default: none needed)"_s, Kind::Text,
            text(&ServerConfig::metricsToken) },
        { u"drain_seconds"_s, u"seconds"_s,
            u"On SIGTERM, how long running rewrites may finish (default 30)"_s, Kind::Number,
            number(&ServerConfig::drainSeconds, 0, 3600) },
        { u"tls_cert"_s, u"file"_s, u"Certificate chain (PEM) to serve HTTPS with, beside tls_key"_s,
            Kind::Text, text(&ServerConfig::tlsCert) },
        { u"tls_key"_s, u"file"_s, u"Private key (PEM) of tls_cert"_s, Kind::Text,
            text(&ServerConfig::tlsKey) },
        { u"idle_timeout"_s, u"seconds"_s, u"Close client connections idle this long (default 60)"_s,
            Kind::Number, number(&ServerConfig::idleTimeoutSeconds, 1, 3600) },
        { u"upstream_timeout"_s, u"seconds"_s, u"Give up on an upstream silent this long (default 300)"_s,
            Kind::Number, number(&ServerConfig::upstreamTimeoutSeconds, 1, 3600) },
        { u"release_version"_s, u"version"_s,
            u"Release announced on /version (default: this server's version)"_s, Kind::Text,
            text(&ServerConfig::releaseVersion) },
        { u"release_download_url"_s, u"url"_s, u"Download address announced on /version"_s, Kind::Text,
            text(&ServerConfig::releaseDownloadUrl) },
        { u"release_notes"_s, u"text"_s, u"Release notes announced on /version"_s, Kind::Text,
            text(&ServerConfig::releaseNotes) },
        { u"release_minimum_version"_s, u"version"_s, u"Oldest supported release announced on /version"_s,
            Kind::Text, text(&ServerConfig::releaseMinimumVersion) },
        { u"release_force_update"_s, u"bool"_s, u"Force-update flag announced on /version"_s, Kind::Boolean,
            boolean(&ServerConfig::releaseForceUpdate) },
        { u"no_client_token"_s, QString(),
            u"Run without a client token: every client on this machine is let in (loopback only)"_s,
            Kind::Boolean, boolean(&ServerConfig::noClientToken) },
    };
    return all;
}

QString envValue(const QStringList &environment, const QString &name, bool *found = nullptr)
{
    const QString prefix = name + u'=';
    for (const QString &entry : environment) {
        if (entry.startsWith(prefix)) {
            if (found)
                *found = true;
            return entry.mid(prefix.size());
        }
    }
    if (found)
        *found = false;
    return {};
}

const Option *optionNamed(QStringView key)
{
    for (const Option &option : options()) {
        if (option.key == key)
            return &option;
    }
    return nullptr;
}

// The entry's value in the form the environment and the command line give it, or
// nothing when the entry is not of the setting's type.
std::optional<QString> entryValue(const toml::node &node, Kind kind)
{
    switch (kind) {
    case Kind::Text:
        if (const auto *text = node.as_string())
            return QString::fromStdString(text->get());
        break;
    case Kind::Number:
        if (const auto *number = node.as_integer())
            return QString::number(number->get());
        break;
    case Kind::Boolean:
        if (const auto *flag = node.as_boolean())
            return flag->get() ? u"true"_s : u"false"_s;
        break;
    }
    return std::nullopt;
}

QString expectedEntry(const Option &option)
{
    switch (option.kind) {
    case Kind::Text:
        return u"expected text in quotes, e.g. %1 = \"...\""_s.arg(option.key);
    case Kind::Number:
        return u"expected a whole number without quotes, e.g. %1 = 10"_s.arg(option.key);
    case Kind::Boolean:
        return u"expected true or false without quotes"_s;
    }
    return {};
}

bool isLoopback(const QString &address)
{
    return address == "localhost"_L1 || QHostAddress(address).isLoopback();
}

} // namespace

QString readConfigText(QByteArrayView text, const QString &source, ServerConfig &config, QSet<QString> &found)
{
    const auto at = [&source](const toml::source_region &where) {
        return u"%1:%2: "_s.arg(source).arg(where.begin.line);
    };
    toml::table table;
    // The parser reports a syntax error only by throwing; it goes no further than here.
    try {
        table = toml::parse(std::string_view(text.data(), size_t(text.size())), source.toStdString());
    } catch (const toml::parse_error &error) {
        // The old INI form left text unquoted; say how to write it here.
        return at(error.source()) + QString::fromStdString(std::string(error.description()))
            + u" (text goes in quotes: key = \"value\")"_s;
    }
    for (const auto &[key, node] : table) {
        const QString name = QString::fromStdString(std::string(key.str()));
        const Option *option = optionNamed(name);
        if (!option)
            return at(key.source()) + u"unknown setting \"%1\""_s.arg(name);
        // Several model servers, the first healthy one taken.
        if (const auto *list = node.as_array(); list && name == "upstream_url"_L1) {
            QStringList urls;
            for (const toml::node &item : *list) {
                if (!item.is_string())
                    return at(item.source()) + u"upstream_url: expected addresses in quotes"_s;
                urls << QString::fromStdString(item.as_string()->get());
            }
            if (urls.isEmpty())
                return at(node.source()) + u"upstream_url: expected at least one address"_s;
            config.upstreamUrl = urls.takeFirst();
            config.fallbackUrls = urls;
            found.insert(name);
            continue;
        }
        const std::optional<QString> value = entryValue(node, option->kind);
        if (!value)
            return at(node.source()) + u"%1: %2"_s.arg(name, expectedEntry(*option));
        if (const QString error = option->apply(config, *value); !error.isEmpty())
            return at(node.source()) + u"%1: %2"_s.arg(name, error);
        found.insert(name);
    }
    return {};
}

QString defaultConfigDirectory(const QStringList &environment)
{
    QString base = envValue(environment, u"XDG_CONFIG_HOME"_s);
    if (base.isEmpty())
        base = envValue(environment, u"HOME"_s) + u"/.config"_s;
    return base + u"/tessary-server"_s;
}

ConfigResult loadServerConfig(const QStringList &arguments, const QStringList &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Answers Tessary's rewrite requests with any OpenAI-compatible language model server."_s);
    const QCommandLineOption helpOption({ u"h"_s, u"help"_s }, u"Show this help."_s);
    const QCommandLineOption versionOption(u"version"_s, u"Show the version."_s);
    const QCommandLineOption configOption(
        u"config"_s, u"Config file (default $XDG_CONFIG_HOME/tessary-server/config.toml)"_s, u"file"_s);
    const QCommandLineOption verboseOption(u"verbose"_s, u"Log request texts and samples (private data!)."_s);
    parser.addOption(helpOption);
    parser.addOption(versionOption);
    parser.addOption(configOption);
    parser.addOption(verboseOption);
    parser.addPositionalArgument(u"token"_s,
        u"token add NAME | token list | token revoke NAME: tokens per person"_s,
        u"[token add NAME | token list | token revoke NAME]"_s);
    for (const Option &option : options())
        parser.addOption(QCommandLineOption(flagName(option.key), option.description, option.valueName));

    ConfigResult result;
    if (!parser.parse(arguments)) {
        result.error = parser.errorText();
        return result;
    }
    if (parser.isSet(helpOption)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        std::fputs("\nEvery option may also be set in the config file (TOML: the option's name with\n"
                   "underscores, e.g. upstream_url = \"http://localhost:11434/v1\") or in the\n"
                   "environment (TESSARY_SERVER_UPSTREAM_URL).\n",
            stdout);
        result.exitEarly = true;
        return result;
    }
    if (parser.isSet(versionOption)) {
        std::printf("tessary-server %s\n", TESSARY_SERVER_VERSION);
        result.exitEarly = true;
        return result;
    }

    ServerConfig config;
    config.verbose = parser.isSet(verboseOption);
    const QString directory = defaultConfigDirectory(environment);
    config.configFile
        = parser.isSet(configOption) ? parser.value(configOption) : directory + u"/config.toml"_s;
    QSet<QString> given;

    const auto apply = [&](const Option &option, const QString &value, const QString &source) {
        const QString error = option.apply(config, value);
        if (!error.isEmpty())
            result.error = u"%1: %2: %3"_s.arg(source, option.key, error);
        given.insert(option.key);
        return error.isEmpty();
    };

    QFile file(config.configFile);
    if (file.exists()) {
        if (!file.open(QIODevice::ReadOnly)) {
            result.error = u"cannot read %1: %2"_s.arg(config.configFile, file.errorString());
            return result;
        }
        result.error = readConfigText(file.readAll(), config.configFile, config, given);
        if (!result.error.isEmpty())
            return result;
    } else if (parser.isSet(configOption)) {
        result.error = u"config file %1 does not exist"_s.arg(config.configFile);
        return result;
    } else if (const QString old = directory + u"/config.ini"_s; QFileInfo::exists(old)) {
        // Starting without the settings someone wrote there would send rewrites elsewhere.
        result.error = u"%1 is no longer read: move its settings to %2, with text in quotes "
                       "(upstream_url = \"http://localhost:11434/v1\")"_s.arg(old, config.configFile);
        return result;
    }
    for (const Option &option : options()) {
        bool found = false;
        const QString value = envValue(environment, envName(option.key), &found);
        if (found && !apply(option, value, envName(option.key)))
            return result;
    }
    for (const Option &option : options()) {
        const QString flag = flagName(option.key);
        if (parser.isSet(flag)
            && !apply(option, option.valueName.isEmpty() ? u"true"_s : parser.value(flag), u"--"_s + flag))
            return result;
    }

    if (config.noClientToken) {
        if (!config.clientToken.isEmpty()) {
            result.error = u"client_token and no_client_token are both set: choose one"_s;
            return result;
        }
        if (!isLoopback(config.listenAddress)) {
            result.error = u"no_client_token works only on a loopback listen_address (127.0.0.1, ::1, "
                           "localhost): on %1 anyone who reaches the port could use the model"_s.arg(
                               config.listenAddress);
            return result;
        }
    } else if (given.contains(u"client_token"_s) && config.clientToken.isEmpty()) {
        result.error = u"client_token is empty, which would let every client in: leave it out to use the "
                       "token kept in %1/client-token, or set no_client_token to run without one on a "
                       "loopback address"_s.arg(directory);
        return result;
    }

    if (config.tokensFile.isEmpty())
        config.tokensFile = directory + u"/tokens"_s;
    if (config.tlsCert.isEmpty() != config.tlsKey.isEmpty()) {
        result.error = u"tls_cert and tls_key go together: set both, or neither"_s;
        return result;
    }

    if (config.releaseVersion.isEmpty())
        config.releaseVersion = QString::fromLatin1(TESSARY_SERVER_VERSION);
    if (config.releaseMinimumVersion.isEmpty())
        config.releaseMinimumVersion = config.releaseVersion;

    result.config = config;
    result.positional = parser.positionalArguments();
    return result;
}

namespace {

QString newToken()
{
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->generate(bytes.begin(), bytes.end());
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

// Replaces `path` as a whole, so a reader never meets half a token.
QString writeToken(const QString &path, const QString &token)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QString next = path + u".new"_s;
    QFile::remove(next);
    QFile file(next);
    // Owner-only from the start, never readable by others even briefly.
    if (!file.open(
            QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(token.toUtf8() + '\n') < 0 || !file.flush()) {
        const QString error = u"cannot store the client token in %1: %2"_s.arg(path, file.errorString());
        file.remove();
        return error;
    }
    file.close();
    if (std::rename(QFile::encodeName(next).constData(), QFile::encodeName(path).constData()) != 0) {
        QFile::remove(next);
        return u"cannot store the client token in %1: %2"_s.arg(
            path, QString::fromLocal8Bit(std::strerror(errno)));
    }
    return {};
}

} // namespace

TokenResult settleClientToken(ServerConfig &config, const QString &path)
{
    TokenResult result;
    if (config.noClientToken)
        return result;

    std::optional<QString> stored;
    if (QFile file(path); file.exists()) {
        if (!file.open(QIODevice::ReadOnly)) {
            result.error = u"cannot read the client token from %1: %2"_s.arg(path, file.errorString());
            return result;
        }
        // Whatever surrounds the token is the editor's, never the token's.
        stored = QString::fromUtf8(file.readAll()).trimmed();
    }

    if (config.clientToken.isEmpty()) {
        if (stored && stored->isEmpty()) {
            result.error = u"the client token file %1 is empty; delete it to get a new token"_s.arg(path);
            return result;
        }
        if (stored) {
            config.clientToken = *stored;
            return result;
        }
        config.clientToken = newToken();
        result.created = true;
    } else if (stored == config.clientToken) {
        return result;
    }
    result.error = writeToken(path, config.clientToken);
    result.created = result.created && result.error.isEmpty();
    return result;
}
