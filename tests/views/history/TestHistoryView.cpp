// Faults: a search that does not follow the typing, an action on the wrong row or side,
// Delete all at the first press, a failure that is not shown, a row the keyboard cannot use.
#include "HistoryListModel.h"
#include "HistoryStore.h"
#include "QuickItems.h"
#include "ScratchFiles.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_HistoryPlugin)

using namespace Qt::StringLiterals;

namespace {
// Oldest first, as they were made.
const QList<std::pair<QString, QString>> rewrites {
    { u"see you tmrw"_s, u"See you tomorrow."_s },
    { u"pls send the report"_s, u"Could you send the report, please?"_s },
    { u"the meeting moved to 3"_s, u"The meeting is now at three."_s },
};

QStringList originals(const HistoryListModel &model)
{
    QStringList list;
    for (const HistoryEntry &entry : model.entries())
        list << entry.original;
    return list;
}
} // namespace

class TestHistoryView : public QObject
{
    Q_OBJECT

    struct View
    {
        explicit View(const QString &path)
            : store(path)
            , model(store)
        {
        }
        void load()
        {
            engine.addImportPath(u"qrc:/qt/qml"_s);
            QQmlComponent component(&engine, QUrl(u"qrc:/qt/qml/Tessary/History/HistoryView.qml"_s));
            window.reset(qobject_cast<QQuickWindow *>(
                component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(&model) } })));
            if (!window)
                qFatal("%s", qPrintable(component.errorString()));
            window->show();
            if (!QTest::qWaitForWindowExposed(window.get()))
                qFatal("history window not shown");
        }
        void fill()
        {
            QSignalSpy added(&store, &HistoryStore::added);
            int minutes = int(rewrites.size());
            for (const auto &[original, result] : rewrites)
                store.add({ 0, original, result, u"casual"_s, u"mousepad"_s,
                    QDateTime::currentDateTimeUtc().addSecs(-60 * minutes--) });
            while (added.size() < rewrites.size())
                QVERIFY(added.wait(5000));
        }
        QList<QQuickItem *> items(const QString &name) const
        {
            return QuickItems::all(window->contentItem(), name);
        }
        QQuickItem *row(int index) const
        {
            for (QQuickItem *row : items(u"entry"_s)) {
                if (row->property("index").toInt() == index)
                    return row;
            }
            return nullptr;
        }
        // The rows on screen show what the model holds now.
        bool settled() const { return model.isLoaded() && items(u"entry"_s).size() == model.rowCount(); }
        void click(QQuickItem *item) const
        {
            QVERIFY(item);
            const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
            QTest::mouseClick(window.get(), Qt::LeftButton, {}, centre.toPoint());
        }

        HistoryStore store;
        HistoryListModel model;
        QQmlEngine engine;
        std::unique_ptr<QQuickWindow> window;
    };

private Q_SLOTS:
    void searchFollowsTyping_data();
    void searchFollowsTyping();
    void rowActions_data();
    void rowActions();
    void deleteAllAsksTwice();
    void failureIsShown();

private:
    ScratchFiles m_files;
};

void TestHistoryView::searchFollowsTyping_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("nothing typed: all, newest first")
        << QString() << QStringList { rewrites[2].first, rewrites[1].first, rewrites[0].first };
    QTest::newRow("a word of an original") << u"report"_s << QStringList { rewrites[1].first };
    QTest::newRow("a word of a rewrite") << u"tomorrow"_s << QStringList { rewrites[0].first };
    QTest::newRow("in several") << u"the"_s << QStringList { rewrites[2].first, rewrites[1].first };
    QTest::newRow("in none") << u"zebra"_s << QStringList {};
}

void TestHistoryView::searchFollowsTyping()
{
    QFETCH(QString, typed);
    QFETCH(QStringList, shown);

    View view(m_files.newPath(u"history.sqlite"_s));
    view.fill();
    view.load();
    QTRY_VERIFY(view.settled() && view.model.rowCount() == 3);
    for (const QChar c : typed) // the search field has the focus
        QTest::keyClick(view.window.get(), c.toLatin1());
    QTRY_VERIFY(view.settled() && originals(view.model) == shown);
    QCOMPARE(view.items(u"emptyNote"_s).value(0)->isVisible(), shown.isEmpty());
}

void TestHistoryView::rowActions_data()
{
    QTest::addColumn<QString>("button"); // on the second row; empty: a key on it instead
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("clipboard");
    QTest::addColumn<QString>("rewritten");
    QTest::addColumn<QStringList>("left");

    const QStringList all { rewrites[2].first, rewrites[1].first, rewrites[0].first };
    const QStringList withoutSecond { rewrites[2].first, rewrites[0].first };
    QTest::newRow("copy rewrite") << u"copyResult"_s << 0 << rewrites[1].second << QString() << all;
    QTest::newRow("copy original") << u"copyOriginal"_s << 0 << rewrites[1].first << QString() << all;
    QTest::newRow("rewrite again") << u"rewriteAgain"_s << 0 << QString() << rewrites[1].first << all;
    QTest::newRow("delete") << u"delete"_s << 0 << QString() << QString() << withoutSecond;
    QTest::newRow("key C") << QString() << int(Qt::Key_C) << rewrites[1].second << QString() << all;
    QTest::newRow("key O") << QString() << int(Qt::Key_O) << rewrites[1].first << QString() << all;
    QTest::newRow("key R") << QString() << int(Qt::Key_R) << QString() << rewrites[1].first << all;
    QTest::newRow("key Delete") << QString() << int(Qt::Key_Delete) << QString() << QString()
                                << withoutSecond;
}

void TestHistoryView::rowActions()
{
    QFETCH(QString, button);
    QFETCH(int, key);
    QFETCH(QString, clipboard);
    QFETCH(QString, rewritten);
    QFETCH(QStringList, left);

    View view(m_files.newPath(u"history.sqlite"_s));
    view.fill();
    view.load();
    QTRY_VERIFY(view.settled() && view.model.rowCount() == 3);
    QGuiApplication::clipboard()->setText(u"before"_s);
    QSignalSpy rewrite(&view.model, &HistoryListModel::rewriteRequested);

    QQuickItem *second = view.row(1);
    QVERIFY(second);
    if (!button.isEmpty()) {
        view.click(QuickItems::all(second, button).value(0));
    } else {
        // Down from the search field goes into the list, and down it.
        QTest::keyClick(view.window.get(), Qt::Key_Down);
        QTest::keyClick(view.window.get(), Qt::Key_Down);
        QQuickItem *list = view.items(u"entries"_s).value(0);
        QVERIFY(list->hasActiveFocus());
        QCOMPARE(list->property("currentIndex").toInt(), 1);
        QTest::keyClick(view.window.get(), Qt::Key(key));
    }

    QCOMPARE(QGuiApplication::clipboard()->text(), clipboard.isEmpty() ? u"before"_s : clipboard);
    QCOMPARE(rewrite.size(), rewritten.isEmpty() ? 0 : 1);
    if (!rewritten.isEmpty())
        QCOMPARE(rewrite.first(), (QVariantList { rewritten, u"casual"_s }));
    QTRY_VERIFY(view.settled() && originals(view.model) == left);
}

void TestHistoryView::deleteAllAsksTwice()
{
    View view(m_files.newPath(u"history.sqlite"_s));
    view.fill();
    view.load();
    QTRY_VERIFY(view.settled() && view.model.rowCount() == 3);
    QQuickItem *deleteAll = view.items(u"deleteAll"_s).value(0);
    view.click(deleteAll);
    QCOMPARE(deleteAll->property("text").toString(), u"Delete all rewrites?"_s);
    // The store answers in order: once this search is answered, a removal would have been made.
    view.model.refresh();
    QTRY_VERIFY(view.settled());
    QCOMPARE(view.model.rowCount(), 3);
    view.click(deleteAll);
    QTRY_VERIFY(view.settled() && view.model.rowCount() == 0);
    QVERIFY(view.items(u"emptyNote"_s).value(0)->isVisible());
}

void TestHistoryView::failureIsShown()
{
    View view(m_files.write(QByteArray(4096, 'x'), u"history.sqlite"_s));
    view.load();
    QQuickItem *failure = view.items(u"failure"_s).value(0);
    QTRY_VERIFY(failure->isVisible());
    QVERIFY(failure->property("text").toString().contains(u"damaged"_s));
    // Delete all starts the file afresh, and the window says nothing more.
    view.click(view.items(u"deleteAll"_s).value(0));
    view.click(view.items(u"deleteAll"_s).value(0));
    QTRY_VERIFY(!failure->isVisible());
}

QTEST_MAIN(TestHistoryView)
#include "TestHistoryView.moc"
