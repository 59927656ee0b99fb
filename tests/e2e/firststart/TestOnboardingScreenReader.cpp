// Faults: an onboarding button that answers a screen reader's Press and does nothing, a flow that
// a screen reader cannot finish, a finish that keeps no model.
#include "AtspiClient.h"
#include "ClosedPort.h"
#include "Replies.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QFile>

using namespace Qt::StringLiterals;

// A first start driven only through the accessibility bus, as a screen reader's user (or
// automation) goes through it: every button of the way pressed with AT-SPI's action.
class TestOnboardingScreenReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
            "no session bus: run inside scripts/headless-session");
        QVERIFY(m_atspi.connect());
    }

    void pressedToTheEnd_data()
    {
        QTest::addColumn<bool>("modelServer"); // one runs on this computer
        QTest::addColumn<QStringList>("presses");
        QTest::addColumn<QString>("stored"); // a line the settings file holds at the end

        QTest::newRow("no model server: Search again, Set up later")
            << false
            << QStringList { u"Get started"_s, u"Skip for now"_s, u"Search again"_s, u"Set up later"_s }
            << u"onboarding_finished=true"_s;
        QTest::newRow("a model server here: its model, Finish setup")
            << true
            << QStringList { u"Get started"_s, u"Skip for now"_s, u"stand-in-7b"_s, u"Finish setup"_s }
            << u"stand-in-7b"_s;
    }
    void pressedToTheEnd()
    {
        QFETCH(bool, modelServer);
        QFETCH(QStringList, presses);
        QFETCH(QString, stored);

        FixtureServer models;
        QVERIFY(models.listen());
        models.route("/v1/models",
            jsonReply(200, R"({"object":"list","data":[{"id":"stand-in-7b","object":"model"}]})"));
        TessaryProcess program(
            {}, { u"TESSARY_LOCAL_MODEL_PORTS=%1"_s.arg(modelServer ? models.port() : closedPort()) });
        QVERIFY(program.start());
        const auto settingsText = [&program] {
            QFile file(program.path(u"Tessary/Tessary.conf"_s));
            return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
        };

        // Each button is pressed once it is on screen. Every press but a model's row and
        // "Search again" moves the flow on, and the page that had the button goes.
        for (const QString &name : std::as_const(presses)) {
            // A model's row is named with its server's address as well.
            const bool modelRow = name.contains(u'-');
            const QRegularExpression button(
                u"^"_s + QRegularExpression::escape(name) + (modelRow ? u" — .*"_s : u"$"_s));
            if (modelRow || name == u"Search again"_s) {
                QVERIFY2(QTest::qWaitFor([&] { return m_atspi.press(button); }, 15000), qPrintable(name));
                // A model's row stores the model and stays.
                if (modelRow)
                    QTRY_VERIFY2_WITH_TIMEOUT(
                        settingsText().contains(u"model="_s + name), qPrintable(settingsText()), 10000);
                continue;
            }
            // While pages slide, the one going still shows its buttons, and Qt does not tell
            // the bus they are disabled: "Finish setup" can be the old page's for a moment. A
            // press of that one does nothing, as a click there would, and is made again.
            bool pressed = false;
            QVERIFY2(QTest::qWaitFor(
                         [&] {
                             pressed = m_atspi.press(button) || pressed;
                             return pressed && !m_atspi.shows(name);
                         },
                         15000),
                qPrintable(name));
        }
        QTRY_VERIFY2_WITH_TIMEOUT(settingsText().contains(stored), qPrintable(settingsText()), 10000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            settingsText().contains(u"onboarding_finished=true"_s), qPrintable(settingsText()), 10000);
        // The welcome window goes once the last page has been read.
        QTRY_VERIFY_WITH_TIMEOUT(!m_atspi.shows(u"Welcome to Tessary"_s), 10000);
    }

private:
    AtspiClient m_atspi;
};

QTEST_MAIN(TestOnboardingScreenReader)
#include "TestOnboardingScreenReader.moc"
