// Faults: a setting from the wrong source or altered, a bad one taken, a token file letting anyone in.

#include "ScratchFiles.h"
#include "ServerConfig.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// A fresh $XDG_CONFIG_HOME per case, holding tessary-server/config.toml with `text`.
struct ConfigHome
{
    QTemporaryDir dir;

    explicit ConfigHome(const QByteArray &text, const QString &name = u"config.toml"_s)
    {
        QDir(dir.path()).mkpath(u"tessary-server"_s);
        QFile file(dir.filePath(u"tessary-server/"_s + name));
        if (!text.isNull() && file.open(QIODevice::WriteOnly))
            file.write(text);
    }
    QString path(const QString &name) const { return dir.filePath(u"tessary-server/"_s + name); }
    ConfigResult load(const QStringList &arguments = {}, const QStringList &environment = {}) const
    {
        return loadServerConfig(QStringList { u"tessary-server"_s } + arguments,
            QStringList { u"XDG_CONFIG_HOME="_s + dir.path() } + environment);
    }
};

} // namespace

class TestServerConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void laterSourcesWin_data()
    {
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("upstreamUrl");
        QTest::addColumn<QString>("model");
        QTest::addColumn<int>("port");
        QTest::newRow("file over defaults")
            << QStringList() << QStringList() << u"http://file:1/v1"_s << u"from-file"_s << 9000;
        QTest::newRow("environment over file")
            << QStringList { u"TESSARY_SERVER_MODEL=from-env"_s, u"TESSARY_SERVER_PORT=9001"_s }
            << QStringList() << u"http://file:1/v1"_s << u"from-env"_s << 9001;
        QTest::newRow("flag over environment")
            << QStringList { u"TESSARY_SERVER_MODEL=from-env"_s }
            << QStringList { u"--model"_s, u"from-flag"_s, u"--upstream-url=http://flag:2/v1"_s }
            << u"http://flag:2/v1"_s << u"from-flag"_s << 9000;
    }
    void laterSourcesWin()
    {
        QFETCH(QStringList, environment);
        QFETCH(QStringList, arguments);
        const ConfigHome home("upstream_url = \"http://file:1/v1\"\nmodel = 'from-file'\nport = 9000\n");
        const ConfigResult result = home.load(arguments, environment);
        QVERIFY2(result.config, qPrintable(result.error));
        QTEST(result.config->upstreamUrl, "upstreamUrl");
        QTEST(result.config->model, "model");
        QTEST(result.config->port, "port");
        QCOMPARE(result.config->listenAddress, u"127.0.0.1"_s);
    }

    // Keys, tokens and URLs hold any character; the value read is the value written.
    void fileValuesReadBackAsWritten_data()
    {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<QString>("value");
        QTest::newRow("semicolon") << QByteArray("\"secretpart;rest\"") << u"secretpart;rest"_s;
        QTest::newRow("hash, then a comment") << QByteArray("\"k#1\" # the lab's key") << u"k#1"_s;
        QTest::newRow("quotes and a backslash")
            << QByteArray("\"say \\\"hi\\\" \\\\ ok\"") << u"say \"hi\" \\ ok"_s;
        QTest::newRow("literal string keeps backslashes") << QByteArray("'C:\\x\\n'") << u"C:\\x\\n"_s;
        QTest::newRow("non-ASCII") << QByteArray("\"cl\xC3\xA9-\xE2\x82\xAC-\xF0\x9F\x94\x91\"")
                                   << u"clé-€-🔑"_s;
        QTest::newRow("blanks around kept") << QByteArray("\"  padded \"") << u"  padded "_s;
    }
    void fileValuesReadBackAsWritten()
    {
        QFETCH(QByteArray, entry);
        QFETCH(QString, value);
        const ConfigHome home(
            "client_token = " + entry + "\nupstream_key = " + entry + "\n\nupstream_url = " + entry + "\n");
        const ConfigResult result = home.load();
        QVERIFY2(result.config, qPrintable(result.error));
        QCOMPARE(result.config->clientToken, value);
        QCOMPARE(result.config->upstreamKey, value);
        QCOMPARE(result.config->upstreamUrl, value);
    }

    void badValuesNameTheirSource_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        const auto row = [](const char *name, const QByteArray &file, const QString &error,
                             const QStringList &environment = {}, const QStringList &arguments = {},
                             const QString &fileName = u"config.toml"_s) {
            QTest::newRow(name) << file << fileName << environment << arguments << error;
        };
        const QByteArray good = "model = \"m\"\n";
        row("port out of range", good, u"--port: port"_s, {}, { u"--port=70000"_s });
        row("not a number in the environment", good, u"TESSARY_SERVER_MAX_STREAMS: max_streams"_s,
            { u"TESSARY_SERVER_MAX_STREAMS=lots"_s });
        row("unknown flag", good, u"upstream"_s, {}, { u"--upstream"_s });
        row("missing config file named on the command line", good, u"does not exist"_s, {},
            { u"--config=/nonexistent/x.toml"_s });
        // The file's own faults name the file and the line.
        row("unquoted text, as the old format had it", "model = \"m\"\nclient_token = secretpart;rest\n",
            u"config.toml:2: "_s);
        row("unknown setting", "model = \"m\"\n\nupstream = \"http://x\"\n",
            u"config.toml:3: unknown setting \"upstream\""_s);
        row("number in quotes", "port = \"8080\"\n", u"config.toml:1: port: expected a whole number"_s);
        row("number out of range", "\n\nmax_streams = 0\n", u"config.toml:3: max_streams: expected"_s);
        row("boolean as text", "release_force_update = \"yes\"\n", u"config.toml:1: release_force_update"_s);
        row("a section", "model = \"m\"\n[upstream]\nurl = \"x\"\n",
            u"config.toml:2: unknown setting \"upstream\""_s);
        row("set twice", "model = \"a\"\nmodel = \"b\"\n", u"config.toml:2: "_s);
        row("not UTF-8", "model = \"\xFF\"\n", u"config.toml:1: "_s);
        // Every client would get in: only when asked for, and only from this machine.
        row("empty client token in the file", "client_token = \"\"\n", u"client_token is empty"_s);
        row("empty client token in the environment", good, u"client_token is empty"_s,
            { u"TESSARY_SERVER_CLIENT_TOKEN="_s });
        row("no client token on a public address", good, u"only on a loopback"_s, {},
            { u"--no-client-token"_s, u"--listen-address=0.0.0.0"_s });
        row("no client token, yet one given", "no_client_token = true\n", u"both set"_s, {},
            { u"--client-token=abc"_s });
        // Settings written for the old format are not silently left behind.
        row("only a file of the old format", "upstream_url = http://localhost:11434/v1\n",
            u"/tessary-server/config.ini is no longer read: move its settings to "_s, {}, {},
            u"config.ini"_s);
    }

    void badValuesNameTheirSource()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, fileName);
        QFETCH(QStringList, environment);
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        const ConfigHome home(file, fileName);
        const ConfigResult result = home.load(arguments, environment);
        QVERIFY(!result.config);
        QVERIFY2(result.error.contains(error), qPrintable(result.error));
    }

    // The token file always holds the token the server accepts: Tessary pairs by reading it.
    // Without a token, asked for and on a loopback address only, there is no file.
    void tokenFileHoldsTheAcceptedToken_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("stored"); // null: no file yet
        QTest::addColumn<QString>("accepted"); // empty: a new random one if created, else none
        QTest::addColumn<bool>("created");
        QTest::addColumn<QString>("error"); // contained in the refusal; empty: none
        const auto row = [](const char *name, const QStringList &arguments, const QByteArray &stored,
                             const QString &accepted, bool created = false, const QString &error = {}) {
            QTest::newRow(name) << arguments << stored << accepted << created << error;
        };
        const QStringList none { u"--no-client-token"_s };
        row("first start", {}, {}, {}, true);
        row("empty file refused", {}, "\n", {}, false, u"is empty"_s);
        row("later start", {}, "kept-token\n", u"kept-token"_s);
        row("configured, no file yet", { u"--client-token=x;y,#é"_s }, {}, u"x;y,#é"_s);
        row("configured replaces another", { u"--client-token=new-token"_s }, "old-token\n", u"new-token"_s);
        row("no token", none, {}, {});
        row("no token, IPv6 loopback", none + QStringList { u"--listen-address=::1"_s }, {}, {});
        row("no token, localhost", none + QStringList { u"--listen-address=localhost"_s }, {}, {});
    }
    void tokenFileHoldsTheAcceptedToken()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, stored);
        QFETCH(QString, accepted);
        QFETCH(bool, created);
        const ConfigHome home("model = \"m\"\n");
        const QString path = home.path(u"client-token"_s);
        if (!stored.isNull()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(stored);
        }
        const ConfigResult loaded = home.load(arguments);
        QVERIFY2(loaded.config, qPrintable(loaded.error));
        ServerConfig config = *loaded.config;

        const TokenResult token = settleClientToken(config, path);
        QFETCH(QString, error);
        if (!error.isEmpty()) {
            QVERIFY2(token.error.contains(error), qPrintable(token.error));
            QVERIFY(config.clientToken.isEmpty());
            return;
        }
        QVERIFY2(token.error.isEmpty(), qPrintable(token.error));
        QCOMPARE(token.created, created);
        if (accepted.isEmpty() && !created) {
            QVERIFY(config.clientToken.isEmpty());
            QVERIFY(!QFile::exists(path));
            return;
        }
        if (accepted.isEmpty())
            QCOMPARE(
                QByteArray::fromBase64(config.clientToken.toLatin1(), QByteArray::Base64UrlEncoding).size(),
                32);
        else
            QCOMPARE(config.clientToken, accepted);
        QCOMPARE(QString::fromUtf8(ScratchFiles::read(path)).trimmed(), config.clientToken);
        // A file the server wrote is a password: readable by its owner only.
        if (stored.isNull() || !arguments.isEmpty())
            QVERIFY(ScratchFiles::privateToOwner(path));
    }
};

QTEST_GUILESS_MAIN(TestServerConfig)
#include "TestServerConfig.moc"
