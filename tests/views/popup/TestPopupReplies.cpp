// Faults: a model server's reply ending in a finished popup with nothing in it, thinking shown
// as the result, a failure without its message on screen; an instruction typed or picked in
// the popup that never reaches the request, or reaches it beside a tone chip still shown chosen.
#include "FixtureServer.h"
#include "HumanizeService.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "QuickItems.h"
#include "ReplyShapes.h"
#include "ScratchFiles.h"
#include "SessionDesk.h"
#include "StorageManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

using namespace Qt::StringLiterals;

// The popup on screen, with the real view model and service, meeting every reply shape of
// a model server chosen in Settings.
class TestPopupReplies : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;
    FixtureServer m_server;
    QQmlEngine m_engine;

    QQuickItem *item(QQuickWindow *window, const QString &name) const
    {
        return QuickItems::all(window->contentItem(), name).value(0);
    }
    static void click(QQuickWindow *window, QQuickItem *target)
    {
        QVERIFY(target);
        const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_server.listen()); }

    // The popup's own words reach the service: as the "instruction" member a Tessary service
    // reads, and in the prompt built here for a model server; typed and Return, or picked
    // from those saved in Settings. The tone chips then show no tone chosen.
    void instruction_data()
    {
        QTest::addColumn<StorageManager::Provider>("provider");
        QTest::addColumn<bool>("picked");
        QTest::addColumn<QString>("instruction");

        const auto tessary = StorageManager::Provider::TessaryService;
        const auto local = StorageManager::Provider::LocalModel;
        QTest::newRow("Tessary service, typed") << tessary << false << u"shorter, please"_s;
        QTest::newRow("Tessary service, picked") << tessary << true << u"in German"_s;
        QTest::newRow("model server, typed") << local << false << u"fix grammar only"_s;
        QTest::newRow("model server, picked") << local << true << u"in German"_s;
    }
    void instruction()
    {
        QFETCH(StorageManager::Provider, provider);
        QFETCH(bool, picked);
        QFETCH(QString, instruction);

        FixtureReply reply;
        reply.headers = { { "Content-Type", "text/event-stream" } };
        reply.body = ReplyShapes::text("Send the report.") + ReplyShapes::done;
        m_server.route("/v1/chat/completions", reply);
        m_server.route("/api/v1/chat/completions", reply);
        m_server.clearRequests();
        StorageManager storage(m_files.newPath(), m_server.url("/api/v1").toString());
        storage.setApiKey(u"key"_s);
        storage.setModelBase(m_server.url("/v1").toString());
        storage.setModel(u"tiny"_s);
        storage.setProvider(provider);
        storage.setSavedInstructions({ u"fix grammar only"_s, u"in German"_s });
        HumanizeService service(storage);

        SessionDesk desk;
        RewriteSession session({ desk.textAccess, &desk.workspace, desk.pasteboard, service, &storage });
        session.takeCapture({ u"Could you send me the report by Friday?"_s, {} });
        PopupWindowController popup(session, m_engine);
        QQuickWindow *window = popup.window();
        QVERIFY(window);
        popup.showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        window->requestActivate();
        QTRY_VERIFY(window->isActive());
        QTRY_COMPARE(m_server.requests().size(), 1);
        QTRY_VERIFY(!popup.viewModel()->isBusy());

        if (picked) {
            QQuickItem *picker = item(window, u"savedInstructions"_s);
            QVERIFY(picker && picker->isVisible());
            click(window, picker);
            const int index = int(storage.savedInstructions().indexOf(instruction));
            QTRY_VERIFY(item(window, u"savedInstruction-%1"_s.arg(index)));
            QQuickItem *choice = item(window, u"savedInstruction-%1"_s.arg(index));
            QTRY_VERIFY(choice->isVisible() && choice->height() > 0);
            click(window, choice);
        } else {
            click(window, item(window, u"instructionField"_s));
            for (const QChar character : instruction)
                QTest::keyClick(window, character.toLatin1());
            QTest::keyClick(window, Qt::Key_Return);
        }
        QTRY_COMPARE(m_server.requests().size(), 2);
        const QJsonObject body = QJsonDocument::fromJson(m_server.requests().last().body).object();
        if (provider == StorageManager::Provider::TessaryService) {
            QCOMPARE(body.value("instruction"_L1).toString(), instruction);
        } else {
            QVERIFY(!body.contains("instruction"_L1));
            const QString system = body.value("messages"_L1)[0]["content"_L1].toString();
            QVERIFY2(
                system.contains(u"<instruction>"_s + instruction + u"</instruction>"_s), qPrintable(system));
        }
        // The request before it had none: a rewrite without one is what it always was.
        const QByteArray first = m_server.requests().first().body;
        QVERIFY(!first.contains("\"instruction\"") && !first.contains("<instruction>"));
        QTRY_VERIFY(item(window, u"instructionInEffect"_s)->isVisible());
        QVERIFY(item(window, u"instructionInEffect"_s)->property("text").toString().contains(instruction));
        for (const char *tone : { "tone-natural", "tone-casual" })
            QVERIFY2(!item(window, QString::fromLatin1(tone))->property("checked").toBool(), tone);
    }

    void endings_data() { ReplyShapes::addRows(); }
    void endings()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, wire);
        QFETCH(QString, answer);
        QFETCH(QString, reasoning);
        QFETCH(QString, ending);

        FixtureReply reply;
        reply.status = status;
        reply.headers = { { "Content-Type", "text/event-stream" } };
        reply.body = wire;
        m_server.route("/v1/chat/completions", reply);
        StorageManager storage(m_files.newPath(), m_server.url("/api/v1").toString());
        storage.setModelBase(m_server.url("/v1").toString());
        storage.setModel(u"tiny"_s);
        storage.setProvider(StorageManager::Provider::LocalModel);
        HumanizeService service(storage);

        // The real service behind a session on a fake desktop: nothing is replaced here.
        SessionDesk desk;
        RewriteSession session({ desk.textAccess, &desk.workspace, desk.pasteboard, service });
        session.takeCapture({ u"Could you send me the report by Friday?"_s, {} });
        PopupWindowController popup(session, m_engine);
        QQuickWindow *window = popup.window();
        QVERIFY(window);
        popup.showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        PopupViewModel *model = popup.viewModel();
        QTRY_VERIFY_WITH_TIMEOUT(!model->isBusy(), 20000);

        QCOMPARE(model->reasoningText(), reasoning);
        QVERIFY(!model->isThinking());
        QQuickItem *thinking = item(window, u"thinkingToggle"_s);
        QVERIFY(thinking);
        QCOMPARE(thinking->isVisible(), !reasoning.isEmpty());
        if (ending == "answer"_L1) {
            QCOMPARE(model->state(), PopupViewModel::State::Done);
            QTRY_COMPARE(item(window, u"resultText"_s)->property("text").toString(), answer);
            QVERIFY(model->canReplace());
            return;
        }
        // Never a finished popup with nothing to replace: the failure is on screen.
        QCOMPARE(model->state(), PopupViewModel::State::Error);
        QVERIFY(!model->canReplace());
        QQuickItem *message = item(window, u"errorMessage"_s);
        QTRY_VERIFY(message->isVisible());
        QCOMPARE(message->property("text").toString(), model->errorMessage());
        QVERIFY(!model->errorMessage().isEmpty());
        if (ending.startsWith("error:"_L1))
            QVERIFY2(model->errorMessage().contains(ending.sliced(6)), qPrintable(model->errorMessage()));
    }
};

QTEST_MAIN(TestPopupReplies)
#include "TestPopupReplies.moc"
