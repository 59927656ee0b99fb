// Faults: the notice's Undo dead to the keyboard or pressed twice, Escape or its time not
// closing it, Undo offered where an Undo has already ended, a notice silent on the
// accessibility bus.
#include "UndoNotice.h"
#include "UndoNoticeModel.h"

#include <QAccessible>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

class TestUndoNotice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keys_data()
    {
        QTest::addColumn<bool>("offersUndo");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("undos"); // how often Undo is asked
        QTest::addColumn<bool>("closes");

        QTest::newRow("Return presses Undo") << true << int(Qt::Key_Return) << 1 << true;
        QTest::newRow("Space presses Undo") << true << int(Qt::Key_Space) << 1 << true;
        QTest::newRow("Escape closes") << true << int(Qt::Key_Escape) << 0 << true;
        QTest::newRow("after an Undo: Return offers nothing") << false << int(Qt::Key_Return) << 0 << false;
        QTest::newRow("after an Undo: Escape closes") << false << int(Qt::Key_Escape) << 0 << true;
    }
    void keys()
    {
        QFETCH(bool, offersUndo);
        QFETCH(int, key);
        QFETCH(int, undos);
        QFETCH(bool, closes);

        QQmlEngine engine;
        UndoNotice notice(engine);
        QSignalSpy undo(&notice, &UndoNotice::undoRequested);
        notice.say(offersUndo ? u"Replaced."_s : u"The original is back in Mousepad."_s, offersUndo, false,
            QRect(100, 100, 400, 300));
        QQuickWindow *window = notice.window();
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowExposed(window));
        // Centred where the popup was.
        QVERIFY((window->geometry().center() - QPoint(300, 250)).manhattanLength() <= 3);
        // Given the keyboard by the user (it comes up without it).
        window->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(window));

        QTest::keyClick(window, Qt::Key(key));
        QTest::keyClick(window, Qt::Key(key)); // a second press finds the notice closed or spent
        QCOMPARE(undo.size(), undos);
        QCOMPARE(!window->isVisible(), closes);
    }
    void closesWhenItsTimeIsUp()
    {
        QQmlEngine engine;
        UndoNotice notice(engine);
        notice.say(u"Replaced."_s, true, false, {});
        QQuickWindow *window = notice.window();
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QVERIFY(window->setProperty("offerFor", 50));
        notice.model()->say(u"Replaced."_s, true); // the time starts over, now short
        QTRY_VERIFY(!window->isVisible());
    }
    void speaksToScreenReaders()
    {
        QQmlEngine engine;
        UndoNotice notice(engine);
        const QString message = u"The text in Mousepad has changed since the rewrite: the original is on the "
                                "clipboard."_s;
        notice.say(message, false, true, {});
        QVERIFY(QTest::qWaitForWindowExposed(notice.window()));
        QStringList names;
        QList<QAccessibleInterface *> nodes { QAccessible::queryAccessibleInterface(notice.window()) };
        while (!nodes.isEmpty()) {
            QAccessibleInterface *node = nodes.takeFirst();
            if (!node)
                continue;
            if (!node->state().invisible)
                names.append(node->text(QAccessible::Name));
            for (int i = 0; i < node->childCount(); ++i)
                nodes.append(node->child(i));
        }
        QVERIFY2(names.contains(message), qPrintable(names.join(u" | "_s)));
        QVERIFY2(names.contains(u"Close"_s), qPrintable(names.join(u" | "_s)));
        QVERIFY2(!names.contains(u"Undo"_s), qPrintable(names.join(u" | "_s)));
    }
};

QTEST_MAIN(TestUndoNotice)
#include "TestUndoNotice.moc"
