// Where tessary-server's settings come from.

#include "ServerConfig.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestServerConfig : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QStringList environmentWith(const QStringList &extra) const
    {
        return QStringList { u"XDG_CONFIG_HOME="_s + m_dir.path() } + extra;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QDir(m_dir.path()).mkpath(u"tessary-server"_s);
        QFile file(m_dir.filePath(u"tessary-server/config.ini"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("upstream_url = http://file:1/v1\nmodel = from-file\nport = 9000\n");
    }

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
        const ConfigResult result
            = loadServerConfig(QStringList { u"tessary-server"_s } + arguments, environmentWith(environment));
        QVERIFY2(result.config, qPrintable(result.error));
        QTEST(result.config->upstreamUrl, "upstreamUrl");
        QTEST(result.config->model, "model");
        QTEST(result.config->port, "port");
        QCOMPARE(result.config->listenAddress, u"127.0.0.1"_s);
    }

    void badValuesNameTheirSource_data()
    {
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        QTest::newRow("port out of range")
            << QStringList() << QStringList { u"--port=70000"_s } << u"--port: port"_s;
        QTest::newRow("not a number in the environment")
            << QStringList { u"TESSARY_SERVER_MAX_STREAMS=lots"_s } << QStringList()
            << u"TESSARY_SERVER_MAX_STREAMS: max_streams"_s;
        QTest::newRow("unknown flag") << QStringList() << QStringList { u"--upstream"_s } << u"upstream"_s;
        QTest::newRow("missing config file named on the command line")
            << QStringList() << QStringList { u"--config=/nonexistent/x.ini"_s } << u"does not exist"_s;
    }
    void badValuesNameTheirSource()
    {
        QFETCH(QStringList, environment);
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        const ConfigResult result
            = loadServerConfig(QStringList { u"tessary-server"_s } + arguments, environmentWith(environment));
        QVERIFY(!result.config);
        QVERIFY2(result.error.contains(error), qPrintable(result.error));
    }
};

QTEST_GUILESS_MAIN(TestServerConfig)
#include "TestServerConfig.moc"
