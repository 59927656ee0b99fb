// Faults: the focus lost during the key grab, a stale or hidden element reported, another application's focus
// used, the switch read or turned on wrongly, the first question blocking or lost before the bus is found.
#include "../e2e/support/DesktopTools.h"
#include "atspi/AtspiAccessibility.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QMutex>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 showing = 1u << 25;
constexpr quint32 focused = 1u << 12;
constexpr quint32 defunct = 1u << 6;

// The accessibility bus and one application on it, on a thread of their own so that the
// backend's calls are answered while the test waits: org.a11y.Bus points to this same
// bus, and the application's elements answer GetState from a table the test sets.
class FakeDesktop : public QDBusVirtualObject
{
    Q_OBJECT
public:
    QString service; // the application's name on the bus

    // The desktop's accessibility switch, as the bus's launcher keeps it.
    void setEnabled(bool enabled) { m_enabled.storeRelaxed(enabled); }
    bool enabled() const { return m_enabled.loadRelaxed() != 0; }

    void setStates(const QString &path, quint32 states)
    {
        QMutexLocker lock(&m_mutex);
        m_states.insert(path, states);
    }

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        QVariantList answer;
        if (message.member() == u"GetAddress") {
            answer = { qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS") };
        } else if (message.member() == u"Get" && message.arguments().value(1) == u"IsEnabled"_s) {
            answer = { QVariant::fromValue(QDBusVariant(m_enabled.loadRelaxed() != 0)) };
        } else if (message.member() == u"Set" && message.arguments().value(1) == u"IsEnabled"_s) {
            m_enabled.storeRelaxed(message.arguments().value(2).value<QDBusVariant>().variant().toBool());
        } else if (message.member() == u"GetState") {
            QMutexLocker lock(&m_mutex);
            answer = { QVariant::fromValue(QList<quint32> { m_states.value(message.path()), 0 }) };
        } else {
            return false;
        }
        connection.send(message.createReply(answer));
        return true;
    }

public Q_SLOTS:
    void start()
    {
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"fake-desktop"_s);
        bus.registerVirtualObject(u"/"_s, this, QDBusConnection::SubPath);
        bus.registerService(u"org.a11y.Bus"_s);
        service = bus.baseService();
    }

    void focus(const QString &path)
    {
        QDBusMessage signal
            = QDBusMessage::createSignal(path, u"org.a11y.atspi.Event.Object"_s, u"StateChanged"_s);
        signal << u"focused"_s << 1 << 0 << QVariant::fromValue(QDBusVariant(0)) << QVariantMap();
        QDBusConnection(u"fake-desktop"_s).send(signal);
    }

private:
    QMutex m_mutex;
    QHash<QString, quint32> m_states;
    QAtomicInt m_enabled;
};

} // namespace

class TestAtspiFocus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_desktop = new FakeDesktop;
        m_desktop->moveToThread(&m_thread);
        m_thread.start();
        QMetaObject::invokeMethod(m_desktop, &FakeDesktop::start, Qt::BlockingQueuedConnection);
    }
    void cleanupTestCase()
    {
        m_thread.quit();
        m_thread.wait();
        delete m_desktop;
    }
    void focus_data()
    {
        QTest::addColumn<QStringList>("events"); // elements that reported the focus, in order
        QTest::addColumn<quint32>("statesThen"); // of the last one, when the focus is asked for
        QTest::addColumn<bool>("inFront"); // its application is the one in front
        QTest::addColumn<QString>("expected"); // empty: the window as a whole

        const QString text = u"/org/a11y/atspi/accessible/12"_s;
        const QString other = u"/org/a11y/atspi/accessible/30"_s;
        QTest::newRow("focused") << QStringList { text } << (showing | focused) << true << text;
        // While the shortcut's key grab is active, the element drops the focused state.
        QTest::newRow("focus dropped during the key grab") << QStringList { text } << showing << true << text;
        QTest::newRow("the latest of two") << QStringList { other, text } << showing << true << text;
        QTest::newRow("gone since") << QStringList { text } << (showing | defunct) << true << QString();
        QTest::newRow("hidden since") << QStringList { text } << 0u << true << QString();
        QTest::newRow("another application in front")
            << QStringList { text } << (showing | focused) << false << QString();
    }
    void focus()
    {
        QFETCH(QStringList, events);
        QFETCH(quint32, statesThen);
        QFETCH(bool, inFront);
        QFETCH(QString, expected);

        AtspiAccessibility accessibility;
        const RunningApplication app { QCoreApplication::applicationPid(), u"Editor"_s, 0x400001, {} };
        const auto ask = [&](const RunningApplication &front) {
            std::optional<FocusResult> result;
            accessibility.focusedElement(front, [&](FocusResult focus) { result = focus; });
            [&] { QTRY_VERIFY(result.has_value()); }();
            return result && result->element ? result->element->path : u"(none)"_s;
        };

        // Asked before the backend has found the bus (it looks in the background from its
        // start): the answer waits for that, and then it listens for focus events.
        QCOMPARE(ask(app), QString()); // the window as a whole: no event yet, no tree to search
        for (const QString &path : events) {
            m_desktop->setStates(path, showing | focused);
            QMetaObject::invokeMethod(m_desktop, [this, path] { m_desktop->focus(path); });
        }
        // The events are in once the last element is known as the focus.
        QTRY_COMPARE(ask(app), events.constLast());

        m_desktop->setStates(events.constLast(), statesThen);
        RunningApplication front = app;
        front.pid += inFront ? 0 : 1; // another process's window
        QCOMPARE(ask(front), expected);
    }

    // The switch Settings shows and turns on: read from the launcher, set through it.
    void accessibilitySwitch_data()
    {
        QTest::addColumn<bool>("onBefore");
        QTest::addColumn<bool>("turnOn");
        QTest::addColumn<bool>("onAfter");

        QTest::newRow("off, left alone") << false << false << false;
        QTest::newRow("off, turned on") << false << true << true;
        QTest::newRow("on already") << true << false << true;
    }
    void accessibilitySwitch()
    {
        QFETCH(bool, onBefore);
        QFETCH(bool, turnOn);
        QFETCH(bool, onAfter);

        m_desktop->setEnabled(onBefore);
        AtspiAccessibility accessibility;
        const auto status = [&] {
            return Desktop::answerOf<AccessibilityStatus>([&](auto done) { accessibility.status(done); });
        };
        QCOMPARE(status()->on, onBefore);
        QVERIFY(status()->switchable);
        if (turnOn) {
            const auto on = Desktop::answerOf<bool>([&](auto done) { accessibility.turnOn(done); });
            QCOMPARE(on, std::optional(true));
        }
        QCOMPARE(m_desktop->enabled(), onAfter);
        QCOMPARE(status()->on, onAfter);
    }

private:
    QThread m_thread;
    FakeDesktop *m_desktop = nullptr;
};

QTEST_GUILESS_MAIN(TestAtspiFocus)
#include "TestAtspiFocus.moc"
