// A tour of the whole program as a new user takes it, with the keyboard only, on the
// desktop of scripts/headless-session: onboarding, the API key in Settings, then a
// sentence in mousepad rewritten with Ctrl+Alt+H and put back with Ctrl+Enter. A
// picture of the screen is saved at every step:
//     TESSARY_DEMO_DIR=OUTPUT_DIR demo-tour
// A step that does not happen fails the tour, so the pictures always show a run that worked.

#include "DesktopFixture.h"
#include "FixtureServer.h"
#include "Selection.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace Desktop;

namespace {

const QString paragraph
    = u"Hi Sam,\n\nthanks for the notes. i looked at the numbers and honestly i think we should push "
      u"the launch by a few days because the onboarding bug is still there.\n\nBest, Alex\n"_s;
const QString sentence
    = u"i looked at the numbers and honestly i think we should push the launch by a few days because "
      u"the onboarding bug is still there."_s;
const QString rewrite = u"I went through the numbers, and I'd like to move the launch back a few days: "
                        u"the onboarding bug is still there, and I don't want our first users to hit it."_s;

// The rewrite as a model streams it: a few characters every 40 ms.
FixtureReply streamedRewrite(const FixtureRequest &)
{
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    for (qsizetype at = 0; at < rewrite.size(); at += 7) {
        const QJsonObject delta { { u"content"_s, rewrite.mid(at, 7) } };
        const QJsonObject event { { u"choices"_s, QJsonArray { QJsonObject { { u"delta"_s, delta } } } } };
        reply.body += "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
        reply.splitAt.append(reply.body.size());
    }
    reply.body += "data: [DONE]\n\n";
    reply.delay = std::chrono::milliseconds(40);
    return reply;
}

} // namespace

class DemoTour : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void tour();

private:
    void picture(const QString &name);
    static bool windowShown(const QString &title);

    QDir m_out;
    FixtureServer m_service;
    QTemporaryDir m_config;
    QProcess m_program;
    int m_pictures = 0;
};

void DemoTour::initTestCase()
{
    QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "runs inside scripts/headless-session");
    m_out.setPath(qEnvironmentVariable("TESSARY_DEMO_DIR", u"demo"_s));
    QVERIFY(QDir().mkpath(m_out.absolutePath()));
    QVERIFY(m_service.listen(TESSARY_E2E_API_PORT));
    m_service.route("/api/v1/chat/completions", streamedRewrite);
    FixtureReply version;
    version.body
        = R"({"success":true,"data":{"current_version":"0.1.0","download_url":"https://example.org",)"
          R"("release_notes":"","force_update":false,"minimum_supported_version":"0.1.0"}})";
    m_service.route("/api/v1/version", version);
}

void DemoTour::cleanupTestCase()
{
    m_program.terminate();
    if (!m_program.waitForFinished(5000))
        m_program.kill();
}

void DemoTour::picture(const QString &name)
{
    const QString file = m_out.filePath(u"tour-%1-%2.png"_s.arg(++m_pictures).arg(name));
    run(u"import"_s, { u"-window"_s, u"root"_s, file });
    std::printf("%s\n", qPrintable(file));
}

bool DemoTour::windowShown(const QString &title)
{
    return !run(u"xdotool"_s, { u"search"_s, u"--onlyvisible"_s, u"--name"_s, title }).isEmpty();
}

void DemoTour::tour()
{
    // First start: no key stored, so onboarding opens.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_CONFIG_HOME"_s, m_config.path());
    // Whatever this machine runs, the tour finds no model server: it sets up the service by key.
    env.insert(u"TESSARY_LOCAL_MODEL_PORTS"_s, u"9"_s);
    m_program.setProcessEnvironment(env);
    m_program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_program.start(qEnvironmentVariable("TESSARY_BINARY_DIR") + u"/tests/tessary-e2e"_s);
    QVERIFY(m_program.waitForStarted());
    QVERIFY(QTest::qWaitFor([] { return windowShown(u"Welcome to Tessary"_s); }, 10000));
    QTest::qWait(1200); // the page's entrance
    picture(u"welcome"_s);

    keys({ u"Return"_s });
    QTest::qWait(900);
    run(u"xdotool"_s,
        { u"type"_s, u"--delay"_s, u"8"_s,
            u"Hey team, quick one before I forget: the client moved our call to Friday, so we've got "
            u"two more days for the deck. Shout if that clashes with anything."_s });
    QTest::qWait(300);
    picture(u"sample"_s);

    keys({ u"ctrl+Return"_s });
    QTest::qWait(1200);
    picture(u"model"_s);
    keys({ u"Return"_s }); // nothing found here: set up later, in Settings
    QTest::qWait(900);
    picture(u"done"_s);

    // Completed without a key: Settings opens at the key field.
    QVERIFY(QTest::qWaitFor([] { return windowShown(u"Tessary — Settings"_s); }, 10000));
    QTest::qWait(500);
    run(u"xdotool"_s, { u"type"_s, u"--delay"_s, u"8"_s, u"demo-key-4f1c"_s });
    QTest::qWait(300);
    picture(u"settings"_s);
    keys({ u"Escape"_s }); // leaves the key field, so Return means Done
    keys({ u"Return"_s });
    QVERIFY(QTest::qWaitFor([] { return !windowShown(u"Tessary — Settings"_s); }, 5000));

    // A sentence in an editor, rewritten with the shortcut.
    Editor editor(paragraph, true);
    QVERIFY(editor.waitUntilActive());
    keys(keysSelecting(paragraph, sentence));
    keys({ u"ctrl+alt+h"_s });
    QVERIFY(QTest::qWaitFor([&] { return m_service.requests().size() > 0; }, 10000));
    QTest::qWait(600);
    picture(u"streaming"_s);
    QTest::qWait(2500);
    picture(u"rewritten"_s);

    keys({ u"ctrl+Return"_s }); // Replace
    QTest::qWait(1500);
    picture(u"replaced"_s);
    QString expected = paragraph;
    expected.replace(sentence, rewrite);
    QCOMPARE(editor.savedText(), expected);
}

QTEST_MAIN(DemoTour)
#include "DemoTour.moc"
