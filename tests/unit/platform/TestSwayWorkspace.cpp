// The window in front as sway's IPC socket tells it: a stand-in sway answers GET_TREE
// with scripted bytes, whole, in pieces, garbled or not at all. Guards the framing both
// ways, the search for the focused window, and answering by the deadline.
#include "wlroots/SwayWorkspace.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

QByteArray framed(quint32 type, const QByteArray &payload)
{
    const quint32 fields[2] = { quint32(payload.size()), type };
    return "i3-ipc" + QByteArray(reinterpret_cast<const char *>(fields), sizeof(fields)) + payload;
}

const QByteArray tiled = R"({"type":"root","nodes":[{"type":"workspace","focused":false,"nodes":[
    {"type":"con","id":7,"focused":false,"pid":10,"app_id":"firefox"},
    {"type":"con","id":8,"focused":true,"pid":42,"app_id":"mousepad"}],"floating_nodes":[]}]})";
const QByteArray floatingX = R"({"type":"root","nodes":[{"type":"workspace","nodes":[],"floating_nodes":[
    {"type":"floating_con","id":9,"focused":true,"pid":43,"app_id":null,
     "window_properties":{"class":"XTerm","instance":"xterm"}}]}]})";
const QByteArray emptyWorkspace
    = R"({"type":"root","nodes":[{"type":"workspace","focused":true,"nodes":[]}]})";

} // namespace

class TestSwayWorkspace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frontmostApplication_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QList<int>>("cuts"); // where the answer is split between writes
        QTest::addColumn<qint64>("pid");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("windowClass");

        const QStringList mousepad { u"mousepad"_s, u"mousepad"_s };
        QTest::newRow("tiled Wayland window")
            << framed(4, tiled) << QList<int> {} << 42ll << u"mousepad"_s << mousepad;
        QTest::newRow("header and tree in pieces")
            << framed(4, tiled) << QList<int> { 3, 11, 40 } << 42ll << u"mousepad"_s << mousepad;
        QTest::newRow("floating X window") << framed(4, floatingX) << QList<int> {} << 43ll << u"XTerm"_s
                                           << QStringList { u"xterm"_s, u"XTerm"_s };
        QTest::newRow("empty workspace focused")
            << framed(4, emptyWorkspace) << QList<int> {} << 0ll << QString() << QStringList();
        QTest::newRow("garbled") << QByteArray("i3-ipx").append(framed(4, tiled).mid(6)) << QList<int> {}
                                 << 0ll << QString() << QStringList();
        QTest::newRow("no answer") << QByteArray() << QList<int> {} << 0ll << QString() << QStringList();
    }

    void frontmostApplication()
    {
        QFETCH(QByteArray, answer);
        QFETCH(QList<int>, cuts);
        QFETCH(qint64, pid);
        QFETCH(QString, name);
        QFETCH(QStringList, windowClass);

        QTemporaryDir dir;
        QLocalServer sway;
        QVERIFY(sway.listen(dir.filePath(u"sway-ipc.sock"_s)));
        QByteArray asked;
        connect(&sway, &QLocalServer::newConnection, this, [&] {
            QLocalSocket *client = sway.nextPendingConnection();
            connect(client, &QLocalSocket::readyRead, this, [&, client] {
                asked += client->readAll();
                if (asked != framed(4, {}) || answer.isEmpty())
                    return;
                // Each piece in a write of its own, a moment apart, so they arrive apart.
                int from = 0;
                int delay = 0;
                for (int cut : cuts + QList<int> { int(answer.size()) }) {
                    QTimer::singleShot(delay, client,
                        [client, piece = answer.mid(from, cut - from)] { client->write(piece); });
                    from = cut;
                    delay += 20;
                }
            });
        });

        SwayWorkspace workspace(sway.fullServerName());
        std::optional<std::optional<RunningApplication>> front;
        workspace.frontmostApplication([&](std::optional<RunningApplication> app) { front = app; });
        QTRY_VERIFY(front.has_value());
        QCOMPARE(asked, framed(4, {}));
        QCOMPARE(front->has_value(), pid != 0);
        QCOMPARE(front->value_or(RunningApplication {}).pid, pid);
        QCOMPARE(front->value_or(RunningApplication {}).name, name);
        QCOMPARE(front->value_or(RunningApplication {}).windowClass, windowClass);
    }
};

QTEST_GUILESS_MAIN(TestSwayWorkspace)
#include "TestSwayWorkspace.moc"
