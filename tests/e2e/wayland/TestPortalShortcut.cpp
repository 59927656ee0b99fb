// Guards against a Wayland session where Ctrl+Alt+H silently does nothing: the shortcut
// never registered with the desktop, or its activation never reaching the rewrite.
#include "portal/PortalGlobalShortcuts.h"

#include <QDBusInterface>
#include <QDBusReply>
#include <QTest>

using namespace Qt::StringLiterals;

class TestPortalShortcut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void desktopActivationReachesTheHandler()
    {
        PortalGlobalShortcuts shortcut;
        QList<std::pair<int, quint64>> pressed;
        QVERIFY(shortcut.start([&](int keyCode, quint64 flags) {
            pressed.append({ keyCode, flags });
            return true;
        }));

        // The desktop's shortcut daemon stands for the key press: it lists the shortcut
        // once the portal registered it, and invokes it as if the keys were pressed.
        QDBusInterface daemon(u"org.kde.kglobalaccel"_s, u"/kglobalaccel"_s, u"org.kde.KGlobalAccel"_s);
        QString component;
        const auto registered = [&] {
            const QDBusReply<QList<QDBusObjectPath>> components = daemon.call(u"allComponents"_s);
            for (const QDBusObjectPath &path : components.value()) {
                QDBusInterface c(u"org.kde.kglobalaccel"_s, path.path(), u"org.kde.kglobalaccel.Component"_s);
                const QDBusReply<QStringList> names = c.call(u"shortcutNames"_s, u"default"_s);
                if (names.value().contains(u"rewrite-selection"_s)) {
                    component = path.path();
                    return true;
                }
            }
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(registered(), 10000);

        QDBusInterface c(u"org.kde.kglobalaccel"_s, component, u"org.kde.kglobalaccel.Component"_s);
        c.call(u"invokeShortcut"_s, u"rewrite-selection"_s, u"default"_s);
        QTRY_COMPARE_WITH_TIMEOUT(pressed.size(), 1, 10000);
        QCOMPARE(pressed.first().first, Keys::H);
        QCOMPARE(pressed.first().second, Keys::Control | Keys::Alt);
    }
};

QTEST_GUILESS_MAIN(TestPortalShortcut)
#include "TestPortalShortcut.moc"
