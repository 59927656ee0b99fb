// Faults: the accessibility line shown while the switch is on or hidden while it is off, a button where the
// desktop has no switch, a press that does not turn it on, the version missing from Settings.
#include "FakeAccessibility.h"
#include "QuickItems.h"
#include "SettingsModel.h"
#include "StorageManager.h"

#include <QAccessible>
#include <QCoreApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_SettingsPlugin)

using namespace Qt::StringLiterals;

// The one line of the settings window about the desktop's accessibility switch, in the
// real window, over the fake bus.
class TestAccessibilitySwitch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void line_data()
    {
        QTest::addColumn<bool>("on");
        QTest::addColumn<bool>("switchable");
        QTest::addColumn<bool>("answered"); // the bus answers at all
        QTest::addColumn<bool>("lineShown");
        QTest::addColumn<bool>("buttonShown");

        QTest::newRow("off, the desktop has the switch") << false << true << true << true << true;
        QTest::newRow("off, no switch to turn") << false << false << true << true << false;
        QTest::newRow("on: nothing to say") << true << true << true << false << false;
        // Until the bus answers nothing is claimed either way.
        QTest::newRow("no answer yet") << false << true << false << false << false;
    }
    void line()
    {
        QFETCH(bool, on);
        QFETCH(bool, switchable);
        QFETCH(bool, answered);
        QFETCH(bool, lineShown);
        QFETCH(bool, buttonShown);

        QCoreApplication::setApplicationVersion(u"9.8.7"_s);
        QTemporaryDir dir;
        StorageManager storage(dir.filePath(u"Tessary.conf"_s), u"http://127.0.0.1:9/api/v1"_s);
        SettingsModel model(storage, dir.filePath(u"autostart"_s), [](const QUrl &) { return true; }, {});
        FakeAccessibility bus;
        bus.switchState = { on, switchable };
        bus.silent = !answered;
        model.accessibility()->setBackend(&bus);

        QQmlEngine engine;
        engine.addImportPath(u"qrc:/qt/qml"_s);
        QQmlComponent component(&engine, QUrl(u"qrc:/qt/qml/Tessary/Settings/SettingsView.qml"_s));
        std::unique_ptr<QQuickWindow> window(qobject_cast<QQuickWindow *>(
            component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(&model) } })));
        QVERIFY2(window, qPrintable(component.errorString()));
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        const auto item
            = [&](const QString &name) { return QuickItems::all(window->contentItem(), name).value(0); };

        QCOMPARE(item(u"version"_s)->property("text").toString(), u"Tessary 9.8.7"_s);
        QQuickItem *line = item(u"accessibilityLine"_s);
        QQuickItem *button = item(u"turnOnAccessibility"_s);
        QVERIFY(line && button);
        QCOMPARE(line->isVisible(), lineShown);
        QCOMPARE(button->isVisible(), buttonShown);
        if (!buttonShown)
            return;

        // Pressed: the switch goes on and the line goes.
        QCOMPARE(QAccessible::queryAccessibleInterface(button)->text(QAccessible::Name), u"Turn On"_s);
        QVERIFY(QMetaObject::invokeMethod(button, "clicked"));
        QTRY_VERIFY(!line->isVisible());
        QVERIFY(bus.switchState.on);
        // Settings opened again later ask again: the user turned it off elsewhere.
        bus.switchState.on = false;
        model.accessibility()->refresh();
        QTRY_VERIFY(line->isVisible());
    }
};

QTEST_MAIN(TestAccessibilitySwitch)
#include "TestAccessibilitySwitch.moc"
