// Faults: a button usable in the wrong state, a lost or stale result, dead keys or chips, a wrong layer.
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "PopupWindowFactory.h"
#include "QuickItems.h"
#include "SessionDesk.h"
#include "StreamedText.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

#include <memory>

using namespace Qt::StringLiterals;

static const QString sample = u"Could you send me the report by Friday?"_s;

// The popup as the user meets it, on the offscreen platform: what is shown and what
// reacts in each state, and what the clicks send.
class TestPopupView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_desk = std::make_unique<SessionDesk>();
        if (!m_engine)
            m_engine = new QQmlEngine(this);
    }
    void cleanup()
    {
        m_popup.reset();
        m_session.reset();
        m_desk.reset();
    }
    void buttons_data()
    {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<bool>("retry");
        QTest::addColumn<bool>("copy"); // Copy and Replace
        QTest::addColumn<QString>("shown"); // the layer or text in view

        QTest::newRow("loading") << sample << QStringList {} << false << false << u"loadingLayer"_s;
        QTest::newRow("streaming") << sample << QStringList { u"token"_s } << false << false
                                   << u"resultText"_s;
        QTest::newRow("done") << sample << QStringList { u"token"_s, u"complete"_s } << true << true
                              << u"resultText"_s;
        QTest::newRow("done, empty") << sample << QStringList { u"complete"_s } << true << false
                                     << u"resultText"_s;
        // The error replaces the partial result, which is then not offered either.
        QTest::newRow("error after text")
            << sample << QStringList { u"token"_s, u"error"_s } << true << false << u"errorLayer"_s;
        // What to do instead of a spinner that waits for nothing.
        QTest::newRow("no text selected") << QString() << QStringList {} << false << false << u"errorLayer"_s;
    }
    void buttons()
    {
        QFETCH(QString, original);
        QFETCH(QStringList, script);
        QFETCH(bool, retry);
        QFETCH(bool, copy);
        QFETCH(QString, shown);

        open(original);
        for (const QString &step : script) {
            if (step == u"token")
                m_desk->rewriter.token(u"Please send the report by Friday."_s);
            else if (step == u"complete")
                m_desk->rewriter.complete();
            else
                m_desk->rewriter.error(u"The service answered with HTTP 502 Bad Gateway."_s);
        }
        QVERIFY(item(qPrintable(shown))->isVisible());
        if (shown == u"errorLayer"_s && !original.isEmpty()) {
            QVERIFY(!item("resultText")->isVisible());
            QCOMPARE(item("errorMessage")->property("text").toString(),
                u"The service answered with HTTP 502 Bad Gateway."_s);
        }
        if (original.isEmpty())
            QCOMPARE(item("originalText")->property("text").toString(), u"No text selected"_s);

        const std::pair<const char *, bool> expected[]
            = { { "retryButton", retry }, { "copyButton", copy }, { "replaceButton", copy } };
        for (const auto &[name, enabled] : expected) {
            QVERIFY(item(name));
            QCOMPARE(item(name)->isEnabled(), enabled);
            QCOMPARE(item(name)->opacity(), enabled ? 1.0 : 0.4);
        }

        // A disabled button ignores the click; an enabled Retry starts a new request.
        const qsizetype before = m_desk->rewriter.requests.size();
        click(item("retryButton"));
        QCOMPARE(m_desk->rewriter.requests.size(), before + (retry ? 1 : 0));
    }
    void chipsSendTheirToneInLowerCase()
    {
        open(sample);
        const QList<std::pair<QString, QString>> chips { { u"natural"_s, u"Natural"_s },
            { u"casual"_s, u"Casual"_s }, { u"professional"_s, u"Professional"_s },
            { u"punchy"_s, u"Punchy"_s }, { u"warm"_s, u"Warm"_s } };
        auto *row = item("toneRow");
        QVERIFY(row);
        for (const auto &[tone, title] : chips) {
            QQuickItem *chip = item(qPrintable(u"tone-"_s + tone));
            QVERIFY(chip);
            QCOMPARE(chip->property("text").toString(), title);
            // Turn the wheel over the row until the chip is wholly in view, as the user would.
            const auto chipInView = [&] {
                const qreal left = chip->mapToItem(row, QPointF(0, 0)).x();
                return left >= 0 && left + chip->width() <= row->width() + 0.5;
            };
            const QPoint overRow = row->mapToScene(QPointF(row->width() / 2, row->height() / 2)).toPoint();
            for (int notch = 0; notch < 20 && !chipInView(); ++notch) {
                QWheelEvent wheel(overRow, m_popup->window()->mapToGlobal(overRow), {}, QPoint(0, -120),
                    Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
                QCoreApplication::sendEvent(m_popup->window(), &wheel);
            }
            QVERIFY2(chipInView(), qPrintable(tone));
            m_desk->rewriter.token(u"half"_s); // chips react while streaming too
            const qsizetype before = m_desk->rewriter.requests.size();
            click(chip);
            QCOMPARE(m_desk->rewriter.requests.size(), before + 1);
            QCOMPARE(m_desk->rewriter.last().tone, tone);
            QTRY_VERIFY(chip->property("selected").toBool());
        }
    }
    void longOriginalIsCutToFourLines()
    {
        QString longText;
        for (int i = 0; i < 12; ++i)
            longText += u"Line %1 of a long selection that wraps.\n"_s.arg(i);
        open(longText);
        QQuickItem *original = item("originalText");
        QCOMPARE(original->property("lineCount").toInt(), 4);
        QVERIFY(original->property("truncated").toBool());

        // The result is never cut: it grows and the page scrolls.
        m_desk->rewriter.finish(longText);
        QTRY_VERIFY(item("resultText")->height() > 12 * 13);
    }
    void streamedTextReachesTheScreen()
    {
        open(sample);
        QString expected;
        for (int i = 0; i < 200; ++i) {
            const QString fragment = (i % 17 == 0) ? u"\n"_s : u"word%1 "_s.arg(i);
            expected += fragment;
            m_desk->rewriter.token(fragment);
        }
        QQuickItem *result = item("resultText");
        QTRY_COMPARE(result->property("text").toString(), expected);

        // Retry starts over with an empty text, not with the old one and the new appended.
        m_desk->rewriter.complete();
        click(item("retryButton"));
        m_desk->rewriter.token(u"fresh"_s);
        QTRY_COMPARE(result->property("text").toString(), u"fresh"_s);
    }
    void keyboard()
    {
        open(sample, true);
        QQuickWindow *window = m_popup->window();

        // Ctrl+Enter does nothing while busy ...
        QTest::keyClick(window, Qt::Key_Return, Qt::ControlModifier);
        QVERIFY(window->isVisible());
        // ... and replaces once there is a result.
        m_desk->rewriter.finish(u"Result"_s);
        QTest::keyClick(window, Qt::Key_Return, Qt::ControlModifier);
        QTRY_VERIFY(!window->isVisible());
        QTRY_COMPARE(m_desk->accessibility.written, QStringList { u"Result"_s });
        QCOMPARE(m_desk->workspace.activated, QList<qint64> { SessionDesk::editor.pid });

        open(sample, true);
        QTest::keyClick(m_popup->window(), Qt::Key_Escape);
        QTRY_VERIFY(!m_popup->window()->isVisible());
    }
    // Ctrl+D and the toggle switch between the plain result and the one with its changes
    // marked, also while it streams; the marks follow the stream.
    void showChanges_data()
    {
        QTest::addColumn<bool>("byKey");
        QTest::newRow("Ctrl+D") << true;
        QTest::newRow("toggle") << false;
    }
    void showChanges()
    {
        QFETCH(bool, byKey);
        open(u"see you tmrw at the office"_s, true);
        const auto toggle = [&] {
            if (byKey)
                QTest::keyClick(m_popup->window(), Qt::Key_D, Qt::ControlModifier);
            else
                click(item("showChanges"));
        };
        m_desk->rewriter.token(u"See you "_s);
        toggle();
        QQuickItem *changes = item("changesLayer");
        QTRY_VERIFY(changes->isVisible());
        QVERIFY(!item("resultText")->isVisible());
        QVERIFY(item("showChanges")->property("checked").toBool());
        m_desk->rewriter.token(u"tomorrow"_s);
        m_desk->rewriter.complete();
        // see → See counts one; the four words that gave way to "tomorrow", four.
        QTRY_COMPARE(changes->property("summary").toString(), u"5 words changed"_s);
        toggle();
        QTRY_VERIFY(item("resultText")->isVisible());
        QVERIFY(!changes->isVisible());
    }
    // Ctrl+C copies the part of the result selected, and the popup stays; Copy copies all of
    // it and says so for a while.
    void copying()
    {
        open(sample, true);
        m_desk->rewriter.finish(u"Please send the report by Friday."_s);
        QQuickItem *result = item("resultText");
        QTRY_COMPARE(result->property("text").toString(), u"Please send the report by Friday."_s);
        result->forceActiveFocus();
        QMetaObject::invokeMethod(result, "select", Q_ARG(int, 7), Q_ARG(int, 22));
        QTest::keyClick(m_popup->window(), Qt::Key_C, Qt::ControlModifier);
        QTRY_COMPARE(QGuiApplication::clipboard()->text(), u"send the report"_s);
        QVERIFY(m_popup->window()->isVisible());

        QQuickItem *copy = item("copyButton");
        QQuickItem *view = copy;
        while (view && !view->property("copiedFor").isValid())
            view = view->parentItem();
        QVERIFY(view);
        QCOMPARE(view->property("copiedFor").toInt(), 1800);
        view->setProperty("copiedFor", 200);
        m_desk->pasteboard.clear();
        click(copy);
        QCOMPARE(m_desk->clipboardText(), u"Please send the report by Friday."_s);
        QCOMPARE(copy->property("text").toString(), u"Copied!"_s);
        QTRY_COMPARE(copy->property("text").toString(), u"Copy"_s);

        // The result keeps the keyboard after a copy; Ctrl+Enter still replaces.
        result->forceActiveFocus();
        QTest::keyClick(m_popup->window(), Qt::Key_Return, Qt::ControlModifier);
        QTRY_COMPARE(m_desk->accessibility.written, QStringList { u"Please send the report by Friday."_s });
    }
    // A window built ahead is handed the model of the popup it becomes before it is shown:
    // what it shows and what it asks for are that popup's, never its stand-in's.
    void windowBuiltAheadShowsItsOwnPopup()
    {
        PopupWindowFactory windows(*m_engine);
        windows.prepareNext();
        QTRY_VERIFY(windows.hasPreparedWindow());
        QVERIFY(m_desk->rewriter.requests.isEmpty());

        m_session = m_desk->session(sample);
        m_popup = std::make_unique<PopupWindowController>(*m_session, windows);
        QVERIFY(!windows.hasPreparedWindow());
        m_popup->showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(m_popup->window()));
        QCOMPARE(item("originalText")->property("text").toString(), sample);
        QCOMPARE(m_desk->rewriter.requests.size(), 1);
        QCOMPARE(m_desk->rewriter.last().text, sample);

        m_desk->rewriter.token(u"Please send the report."_s);
        QTRY_COMPARE(item("resultText")->property("text").toString(), u"Please send the report."_s);
        m_desk->rewriter.complete();
        click(item("tone-casual"));
        QTRY_VERIFY(item("tone-casual")->property("selected").toBool());
        QCOMPARE(m_desk->rewriter.requests.size(), 2);
        QCOMPARE(m_desk->rewriter.last().tone, u"casual"_s);
    }

private:
    void open(const QString &text, bool active = false)
    {
        m_popup.reset();
        m_session = m_desk->session(text);
        m_popup = std::make_unique<PopupWindowController>(*m_session, *m_engine);
        QVERIFY(m_popup->window());
        m_popup->showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(m_popup->window()));
        if (active) {
            m_popup->window()->requestActivate();
            QTRY_VERIFY(m_popup->window()->isActive());
        }
    }
    QQuickItem *item(const char *name) const
    {
        QQuickItem *found
            = QuickItems::all(m_popup->window()->contentItem(), QString::fromLatin1(name)).value(0);
        if (!found)
            qWarning("no item %s", name);
        return found;
    }
    void click(QQuickItem *target)
    {
        QVERIFY(target);
        const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(m_popup->window(), Qt::LeftButton, {}, centre.toPoint());
    }

    QQmlEngine *m_engine = nullptr;
    std::unique_ptr<SessionDesk> m_desk;
    std::unique_ptr<RewriteSession> m_session;
    std::unique_ptr<PopupWindowController> m_popup;
};

QTEST_MAIN(TestPopupView)
#include "TestPopupView.moc"
