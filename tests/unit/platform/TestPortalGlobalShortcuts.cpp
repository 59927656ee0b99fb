// Faults: a press the desktop sends before its answer to CreateSession arrives dropped, the
// instruction shortcuts set at start costing a second session (and the presses sent while it is
// made), a change while the desktop answers lost, another session's press or one after a refusal
// acted on, an instruction press reaching the wrong instruction.
#include "portal/PortalGlobalShortcuts.h"
#include "portal/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString shortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;

// The desktop's portal on a connection of its own: it records what it is asked and answers
// or presses when the test says so. It keeps its name until the process ends: a message
// to a name nobody holds would start the real portal.
class FakePortal : public QDBusVirtualObject
{
    Q_OBJECT
public:
    struct Creation
    {
        QString requestPath;
        QString sessionPath;
        QStringList shortcutIds;
    };
    QList<Creation> creations;
    QStringList closed; // the sessions closed, in order

    FakePortal()
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"fake-portal"_s))
    {
        m_bus.registerVirtualObject(portalPath, this, QDBusConnection::SubPath);
        m_bus.registerService(u"org.freedesktop.portal.Desktop"_s);
    }

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.member() == u"Close") {
            closed.append(message.path());
            connection.send(message.createReply());
            return true;
        }
        if (message.member() != u"CreateSession")
            return false;
        const auto options = qdbus_cast<QVariantMap>(message.arguments().value(0).value<QDBusArgument>());
        QString sender = message.service().mid(1);
        sender.replace(u'.', u'_');
        const QString base = portalPath + u'/';
        Creation creation { base + u"request/"_s + sender + u'/'
                + options.value(u"handle_token"_s).toString(),
            base + u"session/"_s + sender + u'/' + options.value(u"session_handle_token"_s).toString(), {} };
        const QDBusArgument shortcuts = options.value(u"shortcuts"_s).value<QDBusArgument>();
        shortcuts.beginArray();
        while (!shortcuts.atEnd()) {
            QString id;
            QVariantMap properties;
            shortcuts.beginStructure();
            shortcuts >> id >> properties;
            shortcuts.endStructure();
            creation.shortcutIds.append(id);
        }
        shortcuts.endArray();
        creations.append(creation);
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(creation.requestPath))));
        return true;
    }

    // Answers the creation-th CreateSession.
    void answer(qsizetype creation, uint response)
    {
        const Creation &asked = creations.at(creation);
        QDBusMessage signal = QDBusMessage::createSignal(
            asked.requestPath, u"org.freedesktop.portal.Request"_s, u"Response"_s);
        QVariantMap results;
        if (response == 0)
            results.insert(u"session_handle"_s, asked.sessionPath);
        signal << response << results;
        m_bus.send(signal);
    }

    void press(const QString &sessionPath, const QString &id)
    {
        QDBusMessage signal = QDBusMessage::createSignal(portalPath, shortcutsInterface, u"Activated"_s);
        signal << QVariant::fromValue(QDBusObjectPath(sessionPath)) << id << quint64(0) << QVariantMap();
        m_bus.send(signal);
    }

private:
    QDBusConnection m_bus;
};

// Sees each press as the shortcuts' own connection receives it. Both are handed the same
// message at once, so once this one has it, the shortcuts have had it too.
class PressWatcher : public QObject
{
    Q_OBJECT
public:
    int seen = 0;
    PressWatcher()
    {
        QDBusConnection::sessionBus().connect(u"org.freedesktop.portal.Desktop"_s, portalPath,
            shortcutsInterface, u"Activated"_s, this, SLOT(pressed()));
    }
public Q_SLOTS:
    void pressed() { ++seen; }
};

} // namespace

class TestPortalGlobalShortcuts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_portal = std::make_unique<FakePortal>(); }

    void press_data()
    {
        QTest::addColumn<QStringList>("atStart"); // the instruction shortcuts set right after start
        QTest::addColumn<QStringList>("meanwhile"); // set while the desktop answers; empty: none
        QTest::addColumn<uint>("response"); // the desktop's answer to the first CreateSession
        QTest::addColumn<bool>("pressFirst"); // the press comes before the last answer
        QTest::addColumn<QString>("pressedSession"); // empty: the one Tessary asked for
        QTest::addColumn<QString>("pressedId");
        QTest::addColumn<QStringList>("sessions"); // the shortcut ids of each CreateSession
        QTest::addColumn<QString>("reached"); // "Ctrl+Alt+H", "instruction N", or empty

        const QString hotkey = u"rewrite-selection"_s;
        const QStringList one { u"Ctrl+Alt+J"_s };
        const QStringList two { u"Ctrl+Alt+J"_s, u"Ctrl+Alt+K"_s };
        QTest::newRow("answered, then pressed") << QStringList() << QStringList() << 0u << false << QString()
                                                << hotkey << QStringList { hotkey } << u"Ctrl+Alt+H"_s;
        QTest::newRow("pressed before the answer")
            << QStringList() << QStringList() << 0u << true << QString() << hotkey << QStringList { hotkey }
            << u"Ctrl+Alt+H"_s;
        QTest::newRow("instruction shortcuts at start: one session")
            << two << QStringList() << 0u << true << QString() << u"instruction-1"_s
            << QStringList { hotkey + u" instruction-0 instruction-1"_s } << u"instruction 1"_s;
        QTest::newRow("changed while the desktop answers")
            << QStringList() << one << 0u << true << QString() << u"instruction-0"_s
            << QStringList { hotkey, hotkey + u" instruction-0"_s } << u"instruction 0"_s;
        QTest::newRow("an instruction that is not there")
            << one << QStringList() << 0u << false << QString() << u"instruction-3"_s
            << QStringList { hotkey + u" instruction-0"_s } << QString();
        QTest::newRow("another program's session") << QStringList() << QStringList() << 0u << false
                                                   << u"/org/freedesktop/portal/desktop/session/1_9/x"_s
                                                   << hotkey << QStringList { hotkey } << QString();
        QTest::newRow("refused") << QStringList() << QStringList() << 2u << false << QString() << hotkey
                                 << QStringList { hotkey } << QString();
    }
    void press()
    {
        QFETCH(QStringList, atStart);
        QFETCH(QStringList, meanwhile);
        QFETCH(uint, response);
        QFETCH(bool, pressFirst);
        QFETCH(QString, pressedSession);
        QFETCH(QString, pressedId);
        QFETCH(QStringList, sessions);
        QFETCH(QString, reached);

        FakePortal &portal = *m_portal;
        portal.creations.clear();
        PressWatcher watcher;
        QStringList reachedKeys;
        PortalGlobalShortcuts shortcuts;
        QVERIFY(shortcuts.start([&](int, quint64) {
            reachedKeys.append(u"Ctrl+Alt+H"_s);
            return true;
        }));
        QVERIFY(shortcuts.setShortcuts(
            atStart, [&](int index) { reachedKeys.append(u"instruction %1"_s.arg(index)); }));
        QTRY_COMPARE(portal.creations.size(), 1);
        portal.closed.clear(); // the sessions of the rows before
        if (!meanwhile.isEmpty())
            QVERIFY(shortcuts.setShortcuts(
                meanwhile, [&](int index) { reachedKeys.append(u"instruction %1"_s.arg(index)); }));

        const QString session = portal.creations.first().sessionPath;
        const auto pressOnce = [&] {
            const int before = watcher.seen;
            portal.press(pressedSession.isEmpty() ? session : pressedSession, pressedId);
            QTRY_COMPARE(watcher.seen, before + 1);
            QCoreApplication::sendPostedEvents();
        };
        if (sessions.size() > 1) {
            portal.answer(0, response);
            QTRY_COMPARE(portal.creations.size(), 2);
            QCOMPARE(portal.closed, QStringList { session });
        }
        if (pressFirst)
            pressOnce();
        portal.answer(portal.creations.size() - 1, sessions.size() > 1 ? 0 : response);
        if (!pressFirst)
            pressOnce();

        QStringList asked;
        for (const FakePortal::Creation &creation : std::as_const(portal.creations))
            asked.append(creation.shortcutIds.join(u' '));
        QCOMPARE(asked, sessions);
        QCOMPARE(reachedKeys, reached.isEmpty() ? QStringList() : QStringList { reached });
    }

private:
    std::unique_ptr<FakePortal> m_portal;
};

QTEST_GUILESS_MAIN(TestPortalGlobalShortcuts)
#include "TestPortalGlobalShortcuts.moc"
