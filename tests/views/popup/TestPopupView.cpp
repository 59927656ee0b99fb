// Faults: a button usable in the wrong state, a lost or stale result, dead keys or chips, a wrong layer,
// a control Tab skips or reaches out of order, no focus ring, a chip silent on the accessibility bus or
// deaf to its Press, a label cut short at some scale or in a longer language, a long result whose pages
// lose text or do not read as one.
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "PopupWindowFactory.h"
#include "QuickItems.h"
#include "ScratchFiles.h"
#include "SessionDesk.h"
#include "StorageManager.h"
#include "StreamedText.h"
#include "WordDiff.h"

#include <QAccessible>
#include <QClipboard>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

static const QString sample = u"Could you send me the report by Friday?"_s;
static const QStringList tones { u"natural"_s, u"casual"_s, u"professional"_s, u"punchy"_s, u"warm"_s };

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
        m_settings.reset();
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
                m_desk->rewriter.error(Failure::of(
                    Failure::Kind::HttpStatus, u"The service answered with HTTP 502 Bad Gateway."_s));
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
            // Every chip is in view without scrolling, the last one too.
            const qreal left = chip->mapToItem(row, QPointF(0, 0)).x();
            QVERIFY2(left >= 0 && left + chip->width() <= row->width() + 0.5, qPrintable(tone));
            m_desk->rewriter.token(u"half"_s); // chips react while streaming too
            const qsizetype before = m_desk->rewriter.requests.size();
            click(chip);
            QCOMPARE(m_desk->rewriter.requests.size(), before + 1);
            QCOMPARE(m_desk->rewriter.last().tone, tone);
            QTRY_VERIFY(chip->property("checked").toBool());
        }
    }
    // Tab walks every control in reading order and wraps, skipping what is disabled; the
    // control under the keyboard shows its ring. The keyboard starts on the chosen tone.
    void tabOrder_data()
    {
        QTest::addColumn<bool>("done");
        QTest::addColumn<bool>("saved"); // instructions are saved in Settings
        QTest::addColumn<QStringList>("order"); // after the chosen tone, Tab by Tab

        const QStringList tones { u"tone-casual"_s, u"tone-professional"_s, u"tone-punchy"_s, u"tone-warm"_s,
            u"instructionField"_s };
        QTest::newRow("done: every button") << true << false
                                            << tones
                + QStringList { u"retryButton"_s, u"copyButton"_s, u"replaceButton"_s, u"closeButton"_s,
                      u"tone-natural"_s };
        QTest::newRow("loading: the footer is skipped")
            << false << false << tones + QStringList { u"closeButton"_s, u"tone-natural"_s };
        QTest::newRow("saved instructions: their picker after the field")
            << false << true
            << tones + QStringList { u"savedInstructions"_s, u"closeButton"_s, u"tone-natural"_s };
    }
    void tabOrder()
    {
        QFETCH(bool, done);
        QFETCH(bool, saved);
        QFETCH(QStringList, order);
        if (saved)
            useSettings()->setSavedInstructions({ u"shorter"_s, u"in German"_s });
        open(sample, true);
        if (done)
            m_desk->rewriter.finish(u"Result"_s);
        QTRY_COMPARE(focusedName(), u"tone-natural"_s);
        QVERIFY(!ringShown()); // no ring before the keyboard is used

        for (const QString &expected : order) {
            QTest::keyClick(m_popup->window(), Qt::Key_Tab);
            QCOMPARE(focusedName(), expected);
            // A text field shows the keyboard by its cursor and edge, not a ring.
            QVERIFY2(expected == u"instructionField"_s || ringShown(), qPrintable(expected));
        }
        // Backwards the same way.
        QTest::keyClick(m_popup->window(), Qt::Key_Backtab);
        QCOMPARE(focusedName(), order.at(order.size() - 2));
        QCOMPARE(m_desk->rewriter.requests.size(), 1); // walking asks for nothing
    }

    // The keys that move between the chips and the keys that act.
    void keys_data()
    {
        QTest::addColumn<QList<QKeySequence>>("keys");
        QTest::addColumn<QString>("focused");
        QTest::addColumn<QString>("tone"); // asked for last; empty: no new request
        const QKeySequence left(Qt::Key_Left), right(Qt::Key_Right), up(Qt::Key_Up), down(Qt::Key_Down);
        const QKeySequence space(Qt::Key_Space), enter(Qt::Key_Return), tab(Qt::Key_Tab);

        QTest::newRow("Right moves, asks nothing") << QList { right } << u"tone-casual"_s << QString();
        QTest::newRow("Left wraps to the last") << QList { left } << u"tone-warm"_s << QString();
        QTest::newRow("Down and Up") << QList { down, down, up } << u"tone-casual"_s << QString();
        QTest::newRow("Right past the last wraps") << QList { left, right } << u"tone-natural"_s << QString();
        QTest::newRow("Space on Casual") << QList { right, space } << u"tone-casual"_s << u"casual"_s;
        QTest::newRow("Return on Punchy") << QList { left, left, enter } << u"tone-punchy"_s << u"punchy"_s;
        QTest::newRow("Return on the chosen tone asks again")
            << QList { right, left, enter } << u"tone-natural"_s << u"natural"_s;
        QTest::newRow("Alt+3 from anywhere")
            << QList { QKeySequence(Qt::ALT | Qt::Key_3) } << u"tone-professional"_s << u"professional"_s;
        QTest::newRow("Alt+5 from Retry")
            << QList { left, tab, tab, QKeySequence(Qt::ALT | Qt::Key_5) } << u"tone-warm"_s << u"warm"_s;
        // Retry is disabled while the new rewrite runs: the keyboard goes back to the tone.
        QTest::newRow("Return on Retry")
            << QList { left, tab, tab, enter } << u"tone-natural"_s << u"natural"_s;
        QTest::newRow("Space on Retry")
            << QList { left, tab, tab, space } << u"tone-natural"_s << u"natural"_s;
        QTest::newRow("Return in an empty instruction asks nothing")
            << QList { left, tab, enter } << u"instructionField"_s << QString();
    }
    void keys()
    {
        QFETCH(QList<QKeySequence>, keys);
        QFETCH(QString, focused);
        QFETCH(QString, tone);
        open(sample, true);
        m_desk->rewriter.finish(u"Result"_s);
        QTRY_COMPARE(focusedName(), u"tone-natural"_s);

        for (const QKeySequence &key : keys)
            QTest::keySequence(m_popup->window(), key);
        QCOMPARE(focusedName(), focused);
        QVERIFY(focused == u"instructionField"_s || ringShown());
        QCOMPARE(m_desk->rewriter.requests.size(), tone.isEmpty() ? 1 : 2);
        const QString chosen = m_desk->rewriter.last().tone;
        QCOMPARE(chosen, tone.isEmpty() ? u"natural"_s : tone);
        // Exactly the chip of that tone is checked.
        for (const QString &name : tones)
            QCOMPARE(item(qPrintable(u"tone-"_s + name))->property("checked").toBool(), name == chosen);
    }

    // Clicks leave no ring behind: not on the chip or button clicked, nor where the keyboard
    // goes when a clicked button turns disabled.
    void clicksLeaveNoRing()
    {
        open(sample, true);
        qsizetype answered = 0;
        for (const char *name : { "tone-casual", "copyButton", "retryButton" }) {
            if (m_desk->rewriter.requests.size() > answered) {
                m_desk->rewriter.finish(u"Result"_s);
                answered = m_desk->rewriter.requests.size();
            }
            QTRY_VERIFY(item(name)->isEnabled());
            click(item(name));
            QVERIFY2(!ringShown(), name);
        }
        QCOMPARE(m_desk->rewriter.requests.size(), 3);
    }

    // What a screen reader hears and does, through Qt's accessibility interfaces (as the
    // accessibility bus calls them): every control named, the chosen chip checked and
    // saying so, and Press acting as a click.
    void screenReader_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("effect"); // what Press does

        QTest::newRow("a tone") << u"tone-punchy"_s << u"Punchy"_s << u"tone punchy"_s;
        QTest::newRow("the chosen tone") << u"tone-natural"_s << u"Natural"_s << u"tone natural"_s;
        QTest::newRow("Retry") << u"retryButton"_s << u"Retry"_s << u"tone natural"_s;
        QTest::newRow("Copy") << u"copyButton"_s << u"Copy"_s << u"copy Result"_s;
        QTest::newRow("Replace") << u"replaceButton"_s << u"Replace"_s << u"replace Result"_s;
        QTest::newRow("Close") << u"closeButton"_s << u"Close"_s << u"closed"_s;
    }
    void screenReader()
    {
        QFETCH(QString, control);
        QFETCH(QString, name);
        QFETCH(QString, effect);
        QAccessible::setActive(true);
        open(sample, true);
        m_desk->rewriter.finish(u"Result"_s);

        for (const QString &tone : tones) {
            QAccessibleInterface *chip
                = QAccessible::queryAccessibleInterface(item(qPrintable(u"tone-"_s + tone)));
            QVERIFY(chip);
            const bool chosen = tone == u"natural"_s;
            // Qt names a checkable button a check box; a radio button would do as well.
            QVERIFY(chip->role() == QAccessible::CheckBox || chip->role() == QAccessible::RadioButton);
            QCOMPARE(bool(chip->state().checkable), true);
            QCOMPARE(bool(chip->state().checked), chosen);
            QCOMPARE(chip->text(QAccessible::Description).startsWith(u"Selected"_s), chosen);
        }

        QAccessibleInterface *target = QAccessible::queryAccessibleInterface(item(qPrintable(control)));
        QVERIFY(target);
        QCOMPARE(target->text(QAccessible::Name), name);
        QVERIFY(target->actionInterface());
        target->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        if (effect == u"closed") {
            QTRY_VERIFY(!m_popup->window()->isVisible());
        } else if (effect.startsWith(u"tone "_s)) {
            QCOMPARE(m_desk->rewriter.requests.size(), 2);
            QCOMPARE(m_desk->rewriter.last().tone, effect.mid(5));
            QTRY_VERIFY(item(qPrintable(u"tone-"_s + effect.mid(5)))->property("checked").toBool());
        } else {
            if (effect.startsWith(u"copy "_s))
                QTRY_COMPARE(m_desk->clipboardText(), effect.mid(5));
            else
                QTRY_COMPARE(m_desk->accessibility.written, QStringList { effect.mid(8) });
        }
    }

    // The instruction's controls for a screen reader: named, and Press acts: on the field it
    // puts the keyboard there, on the picker it opens the saved instructions, on one of them
    // it rewrites with it.
    void instructionForScreenReaders()
    {
        QAccessible::setActive(true);
        useSettings()->setSavedInstructions({ u"shorter"_s, u"in German"_s });
        open(sample, true);
        m_desk->rewriter.finish(u"Result"_s);

        QAccessibleInterface *field = QAccessible::queryAccessibleInterface(item("instructionField"));
        QVERIFY(field && field->actionInterface());
        QCOMPARE(field->text(QAccessible::Name), u"Instruction"_s);
        field->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QTRY_COMPARE(focusedName(), u"instructionField"_s);

        QAccessibleInterface *picker = QAccessible::queryAccessibleInterface(item("savedInstructions"));
        QVERIFY(picker && picker->actionInterface());
        QCOMPARE(picker->text(QAccessible::Name), u"Saved instructions"_s);
        picker->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QTRY_VERIFY(item("savedInstruction-1") && item("savedInstruction-1")->isVisible());
        QAccessibleInterface *choice = QAccessible::queryAccessibleInterface(item("savedInstruction-1"));
        QVERIFY(choice && choice->actionInterface());
        QCOMPARE(choice->text(QAccessible::Name), u"in German"_s);
        choice->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QTRY_COMPARE(m_desk->rewriter.requests.size(), 2);
        QCOMPARE(m_desk->rewriter.last().instruction, u"in German"_s);
    }

    // Every chip and footer button is at least as wide as its label and lies inside the
    // window: with the stock labels, and with words as long as some translations have.
    // tests/views/popup/CMakeLists.txt runs this again at 1.5 and 2 times the scale.
    void nothingClipped_data()
    {
        QTest::addColumn<QString>("toneWord"); // every tone's label; empty: as shipped
        QTest::addColumn<QString>("buttonWord"); // every footer label; empty: as shipped

        QTest::newRow("as shipped") << QString() << QString();
        QTest::newRow("long tones") << u"Umgangssprachlich"_s << QString();
        QTest::newRow("long buttons") << QString() << u"Wiederherstellen"_s;
        QTest::newRow("long both") << u"Professionnellement"_s << u"Zwischenablage"_s;
    }
    void nothingClipped()
    {
        QFETCH(QString, toneWord);
        QFETCH(QString, buttonWord);
        open(sample);
        m_desk->rewriter.finish(u"Result"_s);

        QList<QQuickItem *> controls;
        for (const QString &tone : tones)
            controls.append(item(qPrintable(u"tone-"_s + tone)));
        const int chips = int(controls.size());
        for (const char *name : { "retryButton", "copyButton", "replaceButton" })
            controls.append(item(name));
        for (int i = 0; i < controls.size(); ++i) {
            const QString word = i < chips ? toneWord : buttonWord;
            if (!word.isEmpty())
                controls[i]->setProperty("text", u"%1 %2"_s.arg(word).arg(i + 1));
        }

        const QRectF window(QPointF(), m_popup->window()->size());
        for (QQuickItem *control : std::as_const(controls)) {
            const QString text = control->property("text").toString();
            QQuickItem *label = labelOf(control, text);
            QVERIFY2(label, qPrintable(text));
            // Let the layouts settle on the new labels.
            QTRY_VERIFY2(label->property("implicitWidth").toReal()
                    <= control->property("availableWidth").toReal() + 0.5,
                qPrintable(u"%1: label %2 wide in %3"_s.arg(text)
                               .arg(label->property("implicitWidth").toReal())
                               .arg(control->property("availableWidth").toReal())));
            QVERIFY2(!label->property("truncated").toBool(), qPrintable(text));
        }
        // Once the rows have been laid out again, nothing lies beyond the window or on another.
        const auto area = [](QQuickItem *control) {
            return control->mapRectToScene(QRectF(0, 0, control->width(), control->height()));
        };
        const auto misplaced = [&] {
            for (QQuickItem *control : std::as_const(controls)) {
                bool overlaps = false;
                for (QQuickItem *other : std::as_const(controls))
                    overlaps = overlaps || (other != control && area(other).intersects(area(control)));
                if (overlaps || !window.contains(area(control)))
                    return control->property("text").toString();
            }
            return QString();
        };
        QTRY_COMPARE(misplaced(), QString());
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
    // A long result is shown in pages, each cut where a line wraps or a paragraph ends: the
    // pages hold the whole text, in order, and take the height it takes in one piece.
    void longResultReadsAsOneText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("fragmentLength"); // 0: all at once

        QString paragraph;
        for (int i = 0; i < 400; ++i)
            paragraph += u"word%1 "_s.arg(i);
        QString paragraphs;
        for (int i = 0; i < 400; ++i)
            paragraphs += u"word%1"_s.arg(i) + (i % 29 == 28 ? u"\n\n"_s : i % 11 == 10 ? u"\n"_s : u" "_s);
        QTest::newRow("one paragraph, streamed") << paragraph << 5;
        QTest::newRow("one paragraph, at once") << paragraph << 0;
        QTest::newRow("paragraphs and empty lines, streamed") << paragraphs << 7;
        QTest::newRow("paragraphs and empty lines, at once") << paragraphs << 0;
        QTest::newRow("one word wider than the page") << QString(3000, u'x') << 13;
    }
    void longResultReadsAsOneText()
    {
        QFETCH(QString, text);
        QFETCH(int, fragmentLength);
        constexpr int pageLength = 500;

        open(sample);
        auto *feed = m_popup->window()->findChild<StreamedText *>(u"resultFeed"_s);
        QVERIFY(feed);
        feed->setPageLength(pageLength);
        const int step = fragmentLength ? fragmentLength : int(text.size());
        for (qsizetype at = 0; at < text.size(); at += step)
            m_desk->rewriter.token(text.mid(at, step));
        m_desk->rewriter.complete();
        QTRY_COMPARE(feed->shownText(), text);

        const QList<QQuickItem *> pages = feed->pages();
        QVERIFY2(pages.size() >= 5, qPrintable(QString::number(pages.size())));
        qsizetype at = 0;
        for (int i = 0; i < pages.size(); ++i) {
            const QString page = pages[i]->property("text").toString();
            QCOMPARE(text.mid(at, page.size()), page);
            at += page.size();
            if (i + 1 < pages.size()) {
                QVERIFY2(page.size() <= pageLength, qPrintable(QString::number(page.size())));
                if (text.at(at) == u'\n') // the paragraph's end between two pages
                    ++at;
            }
        }
        QCOMPARE(at, text.size());

        // Once the pages are placed, what holds them is as high as what it shows.
        QQuickItem *holder = item("resultPages");
        const auto placed = [holder] {
            qreal height
                = holder->property("topPadding").toReal() + holder->property("bottomPadding").toReal();
            for (const QQuickItem *page : holder->childItems())
                height += page->isVisible() ? page->height() : 0;
            return qAbs(holder->implicitHeight() - height) < 0.5;
        };
        QTRY_VERIFY(placed());
        const qreal paged = holder->implicitHeight();
        feed->setPageLength(int(text.size()) + 1);
        QTRY_COMPARE(feed->pages().size(), 1);
        QTRY_COMPARE(feed->shownText(), text);
        QTRY_VERIFY(placed());
        QCOMPARE(holder->implicitHeight(), paged);

        // Retry starts over in one page.
        feed->setPageLength(pageLength);
        QTRY_COMPARE(feed->pages().size(), pages.size());
        QQuickItem *first = feed->pages().first();
        click(item("retryButton"));
        m_desk->rewriter.token(u"fresh"_s);
        QTRY_COMPARE(feed->pages(), QList<QQuickItem *> { first });
        QTRY_COMPARE(first->property("text").toString(), u"fresh"_s);
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
        QTRY_COMPARE(changes->property("summary").toString(), u"1 word changed"_s);
        m_desk->rewriter.token(u"tomorrow"_s);
        // The marks follow the text while it streams, not only once it ends.
        QTRY_COMPARE(changes->property("summary").toString(), u"2 words changed"_s);
        m_desk->rewriter.complete();
        // see → See counts one; the four words that gave way to "tomorrow", four.
        QTRY_COMPARE(changes->property("summary").toString(), u"5 words changed"_s);
        toggle();
        QTRY_VERIFY(item("resultText")->isVisible());
        QVERIFY(!changes->isVisible());
    }
    // A rewrite too long to compare stays plain, in its pages, under a line that says so:
    // as one marked text, laid out whole at every comparison, it held the window up.
    void showChangesOfARewriteTooLongToMark()
    {
        open(sample, true);
        QTest::keyClick(m_popup->window(), Qt::Key_D, Qt::ControlModifier);
        m_desk->rewriter.finish(u"word "_s.repeated(WordDiff::maxTokens + 1));
        QTRY_VERIFY(item("tooLongToMark")->isVisible());
        QCOMPARE(item("tooLongToMark")->property("text").toString(), u"Too long to mark the changes"_s);
        QVERIFY(item("resultText")->isVisible());
        QVERIFY(!item("changesLayer")->isVisible());
        QCOMPARE(item("diffText")->property("text").toString(), QString());

        // Plain again, without the line; and a shorter rewrite after it is marked.
        QTest::keyClick(m_popup->window(), Qt::Key_D, Qt::ControlModifier);
        QTRY_VERIFY(!item("tooLongToMark")->isVisible());
        QVERIFY(item("resultText")->isVisible());
        QTest::keyClick(m_popup->window(), Qt::Key_D, Qt::ControlModifier);
        QTRY_VERIFY(item("tooLongToMark")->isVisible());
        click(item("retryButton"));
        QTRY_COMPARE(m_desk->rewriter.requests.size(), 2);
        m_desk->rewriter.finish(u"Please send the report by Friday."_s);
        QTRY_VERIFY(item("changesLayer")->isVisible());
        QVERIFY(!item("tooLongToMark")->isVisible());
        // Could you → Please, me, ? → .
        QTRY_COMPARE(item("changesLayer")->property("summary").toString(), u"4 words changed"_s);
    }
    // The next popup starts as the last one left Show changes, by key or by click; without
    // settings to keep it in, each popup starts plain.
    void showChangesRemembered_data()
    {
        QTest::addColumn<bool>("kept"); // settings keep it
        QTest::addColumn<bool>("byKey");
        QTest::addColumn<int>("presses");
        QTest::newRow("turned on by Ctrl+D") << true << true << 1;
        QTest::newRow("turned on by the toggle") << true << false << 1;
        QTest::newRow("turned on and off again") << true << true << 2;
        QTest::newRow("nowhere to keep it") << false << true << 1;
    }
    void showChangesRemembered()
    {
        QFETCH(bool, kept);
        QFETCH(bool, byKey);
        QFETCH(int, presses);
        if (kept)
            useSettings();
        open(sample, true);
        m_desk->rewriter.finish(u"Please send the report by Friday."_s);
        for (int i = 0; i < presses; ++i) {
            if (byKey)
                QTest::keyClick(m_popup->window(), Qt::Key_D, Qt::ControlModifier);
            else
                click(item("showChanges"));
        }
        const bool left = presses % 2 == 1;
        QTRY_COMPARE(item("showChanges")->property("checked").toBool(), left);
        QTest::keyClick(m_popup->window(), Qt::Key_Escape);

        open(sample, true);
        m_desk->rewriter.finish(u"Please send the report by Friday."_s);
        const bool expected = kept && left;
        QCOMPARE(item("showChanges")->property("checked").toBool(), expected);
        QTRY_COMPARE(item("changesLayer")->isVisible(), expected);
        QCOMPARE(item("resultText")->isVisible(), !expected);
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
        QTRY_VERIFY(item("tone-casual")->property("checked").toBool());
        QCOMPARE(m_desk->rewriter.requests.size(), 2);
        QCOMPARE(m_desk->rewriter.last().tone, u"casual"_s);
    }

private:
    // Settings kept in a scratch file, read by the popups opened from here on.
    StorageManager *useSettings()
    {
        if (!m_settings)
            m_settings = std::make_unique<StorageManager>(m_files.newPath(), u"http://127.0.0.1:9/api/v1"_s);
        m_desk->settings = m_settings.get();
        return m_settings.get();
    }
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
    QString focusedName() const
    {
        QQuickItem *focused = m_popup->window()->activeFocusItem();
        return focused ? focused->objectName() : QString();
    }
    // A ring shows on the control that has the keyboard.
    bool ringShown() const
    {
        QQuickItem *focused = m_popup->window()->activeFocusItem();
        if (!focused || !focused->property("visualFocus").toBool())
            return false;
        QList<QQuickItem *> below { focused };
        while (!below.isEmpty()) {
            QQuickItem *next = below.takeFirst();
            if (QString::fromLatin1(next->metaObject()->className()).startsWith(u"FocusRing"_s)) {
                const QObject *edge = next->property("border").value<QObject *>();
                return next->isVisible() && next->width() > focused->width() && edge
                    && edge->property("width").toReal() >= 1;
            }
            below.append(next->childItems());
        }
        return false;
    }
    // The text item that draws a control's label.
    static QQuickItem *labelOf(QQuickItem *control, const QString &text)
    {
        QList<QQuickItem *> below { control };
        while (!below.isEmpty()) {
            QQuickItem *next = below.takeFirst();
            if (next != control && next->property("text").toString() == text
                && next->property("truncated").isValid())
                return next;
            below.append(next->childItems());
        }
        return nullptr;
    }
    void click(QQuickItem *target)
    {
        QVERIFY(target);
        const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(m_popup->window(), Qt::LeftButton, {}, centre.toPoint());
    }

    QQmlEngine *m_engine = nullptr;
    ScratchFiles m_files;
    std::unique_ptr<StorageManager> m_settings;
    std::unique_ptr<SessionDesk> m_desk;
    std::unique_ptr<RewriteSession> m_session;
    std::unique_ptr<PopupWindowController> m_popup;
};

QTEST_MAIN(TestPopupView)
#include "TestPopupView.moc"
