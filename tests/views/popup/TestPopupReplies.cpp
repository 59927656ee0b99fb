// Faults: a model server's reply ending in a finished popup with nothing in it, thinking shown
// as the result, a failure without its message on screen.
#include "FixtureServer.h"
#include "HumanizeService.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "QuickItems.h"
#include "ReplyShapes.h"
#include "ScratchFiles.h"
#include "SessionDesk.h"
#include "StorageManager.h"

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

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_server.listen()); }

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
