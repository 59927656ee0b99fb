// Faults: a first start that needs a file edited, a model server not offered, a keyboard
// that cannot pick it, a first rewrite that does not reach the model or the editor.
#include "DesktopFixture.h"
#include "Replies.h"
#include "Selection.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace Desktop;

namespace {

const QString paragraph = u"First words stay. Please rewrite this sentence now. Last words stay too."_s;
const QString sentence = u"Please rewrite this sentence now."_s;
const QString rewrite = u"A rewrite from the local model."_s;

// What a local OpenAI-compatible model server answers: its one model, and a stream.
FixtureReply modelList(const FixtureRequest &)
{
    return jsonReply(200, R"({"object":"list","data":[{"id":"stand-in-7b","object":"model"}]})");
}

FixtureReply completion(const FixtureRequest &)
{
    QList<QByteArray> fragments;
    for (qsizetype at = 0; at < rewrite.size(); at += 8)
        fragments.append(rewrite.mid(at, 8).toUtf8());
    return eventStream(fragments);
}

} // namespace

class TestFirstStart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pickTheLocalModelAndRewrite();
};

// A throw-away home with nothing in it, and only a stand-in model server on a port the
// program searches: onboarding offers its model, the keyboard picks it and finishes,
// and the first Ctrl+Alt+H in the editor streams a rewrite from it and replaces.
void TestFirstStart::pickTheLocalModelAndRewrite()
{
    QVERIFY2(
        QDBusConnection::sessionBus().isConnected(), "no session bus: run inside scripts/headless-session");
    FixtureServer model;
    QVERIFY(model.listen());
    model.route("/v1/models", modelList);
    model.route("/v1/chat/completions", completion);

    Editor editor(paragraph, true);
    QVERIFY(editor.waitUntilActive());

    TessaryProcess program({}, { u"TESSARY_LOCAL_MODEL_PORTS="_s + QString::number(model.port()) });
    QVERIFY(program.start());
    const QString &log = program.log;
    const auto settingsText = [&program] {
        QFile file(program.path(u"Tessary/Tessary.conf"_s));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };

    // Nothing is chosen: the welcome window opens in front, and the keyboard does the rest.
    QTRY_VERIFY_WITH_TIMEOUT(windowPid(activeWindow()) == program.processId(), 15000);
    keys({ u"Return"_s, u"m"_s, u"y"_s, u"space"_s, u"w"_s, u"o"_s, u"r"_s, u"d"_s, u"s"_s,
        u"ctrl+Return"_s });
    // The model page takes the first model found as soon as the search has answered.
    QTRY_VERIFY2_WITH_TIMEOUT(settingsText().contains(u"model=stand-in-7b"_s), qPrintable(log), 15000);
    QVERIFY(settingsText().contains(u"provider=local"_s));
    keys({ u"Return"_s });
    QTRY_VERIFY2_WITH_TIMEOUT(
        settingsText().contains(u"humanize_examples=my words"_s), qPrintable(settingsText()), 10000);

    // The window goes and the editor is in front again; the first shortcut rewrites.
    QTRY_VERIFY_WITH_TIMEOUT(windowPid(activeWindow()) == editor.pid(), 10000);
    keys(keysSelecting(paragraph, sentence));
    keys({ u"ctrl+alt+h"_s });
    const auto rewrites = [&model] {
        QList<FixtureRequest> found;
        for (const FixtureRequest &request : model.requests()) {
            if (request.path == "/v1/chat/completions")
                found.append(request);
        }
        return found;
    };
    QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 15000);
    const QJsonObject body = QJsonDocument::fromJson(rewrites().first().body).object();
    QCOMPARE(body.value(u"model"_s).toString(), u"stand-in-7b"_s);
    const QJsonArray messages = body.value(u"messages"_s).toArray();
    QVERIFY(messages.at(0).toObject().value(u"content"_s).toString().contains(u"my words"_s));
    QCOMPARE(messages.at(1).toObject().value(u"content"_s).toString(), sentence);

    QTRY_VERIFY2_WITH_TIMEOUT(
        log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), qPrintable(log), 10000);
    keys({ u"ctrl+Return"_s }); // Replace
    QTRY_VERIFY2_WITH_TIMEOUT(
        log.contains(u"✅ [AccessibilityHelper] AX replace successful"_s), qPrintable(log), 10000);
    QString expected = paragraph;
    expected.replace(sentence, rewrite);
    QCOMPARE(editor.savedText(), expected);
}

QTEST_MAIN(TestFirstStart)
#include "TestFirstStart.moc"
