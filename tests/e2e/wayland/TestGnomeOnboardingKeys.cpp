// Guards the first start on GNOME by keyboard alone: a window that does not get the keys,
// a page whose button does not have them, Return on the list of models doing nothing, the
// last page showing no focus.
#include "AtspiClient.h"
#include "GnomeShellKeys.h"
#include "Replies.h"
#include "TessaryProcess.h"

#include <QFile>

using namespace Qt::StringLiterals;
using GnomeShellKeys::pressKeys;

class TestGnomeOnboardingKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // From the keyboard alone: the window has the keys from its first page,
    // Return on the list of models finishes, and the last page shows where the keys are.
    void onboardingByKeys()
    {
        FixtureServer models;
        QVERIFY(models.listen());
        models.route("/v1/models",
            jsonReply(200, R"({"object":"list","data":[{"id":"stand-in-7b","object":"model"}]})"));
        AtspiClient atspi;
        QVERIFY(atspi.connect());
        TessaryProcess program({}, { u"TESSARY_LOCAL_MODEL_PORTS=%1"_s.arg(models.port()) });
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QVERIFY(program.start());
        const auto settingsText = [&program] {
            QFile file(program.path(u"Tessary/Tessary.conf"_s));
            return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
        };

        QTRY_COMPARE_WITH_TIMEOUT(atspi.focused(), u"Get started"_s, 15000);
        QVERIFY(pressKeys(u"Return"_s));
        QTRY_COMPARE_WITH_TIMEOUT(atspi.focused(), u"Writing sample"_s, 10000);
        QVERIFY(pressKeys(u"Tab"_s));
        QTRY_COMPARE_WITH_TIMEOUT(atspi.focused(), u"Skip for now"_s, 10000);
        QVERIFY(pressKeys(u"Return"_s));
        QTRY_VERIFY_WITH_TIMEOUT(settingsText().contains(u"model=stand-in-7b"_s), 10000);
        // The list's chosen row has the keys.
        QTRY_VERIFY_WITH_TIMEOUT(atspi.focused().startsWith(u"stand-in-7b — "_s), 10000);
        QVERIFY(pressKeys(u"Return"_s));
        QTRY_VERIFY_WITH_TIMEOUT(settingsText().contains(u"onboarding_finished=true"_s), 10000);
        // GNOME gets Ctrl+Alt+H from the last page, whose button has the keys and shows it.
        QTRY_COMPARE_WITH_TIMEOUT(atspi.focused(), u"Add Ctrl+Alt+H"_s, 10000);
    }
};

QTEST_MAIN(TestGnomeOnboardingKeys)
#include "TestGnomeOnboardingKeys.moc"
