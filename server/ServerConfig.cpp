#include "ServerConfig.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSettings>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

// One setting, known under the same name in the config file, the environment
// (TESSARY_SERVER_ + upper case) and on the command line (-- + dashes).
struct Option
{
    QString key;
    QString valueName;
    QString description;
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
        config.*field = value.trimmed();
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
            text(&ServerConfig::upstreamUrl) },
        { u"model"_s, u"name"_s, u"Model name sent to the upstream"_s, text(&ServerConfig::model) },
        { u"upstream_key"_s, u"key"_s, u"API key for the upstream (sent as a bearer token)"_s,
            text(&ServerConfig::upstreamKey) },
        { u"listen_address"_s, u"address"_s, u"Address to listen on (default 127.0.0.1)"_s,
            text(&ServerConfig::listenAddress) },
        { u"port"_s, u"port"_s, u"Port to listen on (default 8787)"_s,
            number(&ServerConfig::port, 0, 65535) },
        { u"client_token"_s, u"token"_s,
            u"Token clients must send (default: generated and kept in client-token)"_s,
            text(&ServerConfig::clientToken) },
        { u"sample_budget"_s, u"chars"_s,
            u"Characters of writing samples per prompt, newest kept (default 6000)"_s,
            number(&ServerConfig::sampleBudget, 0, 1000000) },
        { u"max_body_bytes"_s, u"bytes"_s, u"Largest request body accepted (default 524288)"_s,
            number(&ServerConfig::maxBodyBytes, 1024, 64 * 1024 * 1024) },
        { u"max_header_bytes"_s, u"bytes"_s, u"Largest total size of request headers (default 16384)"_s,
            number(&ServerConfig::maxHeaderBytes, 1024, 1024 * 1024) },
        { u"max_streams"_s, u"count"_s, u"Rewrites streamed at the same time (default 256)"_s,
            number(&ServerConfig::maxStreams, 1, 4096) },
        { u"idle_timeout"_s, u"seconds"_s, u"Close client connections idle this long (default 60)"_s,
            number(&ServerConfig::idleTimeoutSeconds, 1, 3600) },
        { u"upstream_timeout"_s, u"seconds"_s, u"Give up on an upstream silent this long (default 300)"_s,
            number(&ServerConfig::upstreamTimeoutSeconds, 1, 3600) },
        { u"release_version"_s, u"version"_s,
            u"Release announced on /version (default: this server's version)"_s,
            text(&ServerConfig::releaseVersion) },
        { u"release_download_url"_s, u"url"_s, u"Download address announced on /version"_s,
            text(&ServerConfig::releaseDownloadUrl) },
        { u"release_notes"_s, u"text"_s, u"Release notes announced on /version"_s,
            text(&ServerConfig::releaseNotes) },
        { u"release_minimum_version"_s, u"version"_s, u"Oldest supported release announced on /version"_s,
            text(&ServerConfig::releaseMinimumVersion) },
        { u"release_force_update"_s, u"bool"_s, u"Force-update flag announced on /version"_s,
            boolean(&ServerConfig::releaseForceUpdate) },
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

} // namespace

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
        u"config"_s, u"Config file (default $XDG_CONFIG_HOME/tessary-server/config.ini)"_s, u"file"_s);
    const QCommandLineOption verboseOption(u"verbose"_s, u"Log request texts and samples (private data!)."_s);
    parser.addOption(helpOption);
    parser.addOption(versionOption);
    parser.addOption(configOption);
    parser.addOption(verboseOption);
    for (const Option &option : options())
        parser.addOption(QCommandLineOption(flagName(option.key), option.description, option.valueName));

    ConfigResult result;
    if (!parser.parse(arguments)) {
        result.error = parser.errorText();
        return result;
    }
    if (parser.isSet(helpOption)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        std::fputs("\nEvery option may also be set in the config file (key = the option's name with\n"
                   "underscores, e.g. upstream_url) or in the environment (TESSARY_SERVER_UPSTREAM_URL).\n",
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
    config.configFile = parser.isSet(configOption) ? parser.value(configOption)
                                                   : defaultConfigDirectory(environment) + u"/config.ini"_s;

    const auto apply = [&](const Option &option, const QString &value, const QString &source) {
        const QString error = option.apply(config, value);
        if (!error.isEmpty())
            result.error = u"%1: %2: %3"_s.arg(source, option.key, error);
        return error.isEmpty();
    };

    if (QFileInfo::exists(config.configFile)) {
        QSettings file(config.configFile, QSettings::IniFormat);
        if (file.status() != QSettings::NoError) {
            result.error = u"cannot read %1"_s.arg(config.configFile);
            return result;
        }
        for (const Option &option : options()) {
            if (file.contains(option.key)
                && !apply(option, file.value(option.key).toString(), config.configFile))
                return result;
        }
    } else if (parser.isSet(configOption)) {
        result.error = u"config file %1 does not exist"_s.arg(config.configFile);
        return result;
    }
    for (const Option &option : options()) {
        bool found = false;
        const QString value = envValue(environment, envName(option.key), &found);
        if (found && !apply(option, value, envName(option.key)))
            return result;
    }
    for (const Option &option : options()) {
        if (parser.isSet(flagName(option.key))
            && !apply(option, parser.value(flagName(option.key)), u"--"_s + flagName(option.key)))
            return result;
    }
    if (config.releaseVersion.isEmpty())
        config.releaseVersion = QString::fromLatin1(TESSARY_SERVER_VERSION);
    if (config.releaseMinimumVersion.isEmpty())
        config.releaseMinimumVersion = config.releaseVersion;

    result.config = config;
    return result;
}

TokenResult loadOrCreateClientToken(const QString &path)
{
    TokenResult result;
    QFile file(path);
    if (file.exists()) {
        if (!file.open(QIODevice::ReadOnly)) {
            result.error = u"cannot read the client token from %1: %2"_s.arg(path, file.errorString());
            return result;
        }
        result.token = QString::fromUtf8(file.readAll()).trimmed();
        if (result.token.isEmpty())
            result.error = u"the client token file %1 is empty; delete it to get a new token"_s.arg(path);
        return result;
    }

    QDir().mkpath(QFileInfo(path).absolutePath());
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->generate(bytes.begin(), bytes.end());
    result.token
        = QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
    // Created with owner-only permissions from the start, never readable by others even briefly.
    if (!file.open(
            QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(result.token.toLatin1() + '\n') < 0 || !file.flush()) {
        result.error = u"cannot store the client token in %1: %2"_s.arg(path, file.errorString());
        result.token.clear();
        return result;
    }
    result.created = true;
    return result;
}
