// Faults: marks that stay on an earlier text of a stream, marks computed while hidden,
// colours that do not follow the palette, a summary missing from the view.
#include "QuickItems.h"
#include "WordDiff.h"

#include <QGuiApplication>
#include <QPalette>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_PopupPlugin)

using namespace Qt::StringLiterals;

class TestDiffMarks : public QObject
{
    Q_OBJECT

    struct View
    {
        View()
        {
            engine.addImportPath(u"qrc:/qt/qml"_s);
            QQmlComponent component(&engine);
            component.setData(
                "import QtQuick\nimport Tessary.Popup\n"
                "Window { width: 360; height: 300\n"
                "  property alias diff: diff\n"
                "  DiffText { id: diff; objectName: \"diff\"; width: 340; original: \"\"; result: \"\" } }",
                QUrl(u"qrc:/test/DiffView.qml"_s));
            window.reset(qobject_cast<QQuickWindow *>(component.create()));
            if (!window)
                qFatal("%s", qPrintable(component.errorString()));
            window->show();
            if (!QTest::qWaitForWindowExposed(window.get()))
                qFatal("not shown");
            diff = QuickItems::all(window->contentItem(), u"diff"_s).value(0);
        }
        QString shown(const QString &name) const
        {
            return QuickItems::all(diff, name).value(0)->property("text").toString();
        }
        QQmlEngine engine;
        std::unique_ptr<QQuickWindow> window;
        QQuickItem *diff = nullptr;
    };

private Q_SLOTS:
    void marksFollowTheText_data();
    void marksFollowTheText();
    void hiddenComparesNothing();
};

void TestDiffMarks::marksFollowTheText_data()
{
    QTest::addColumn<QString>("original");
    QTest::addColumn<QStringList>("stream"); // the rewrite as it grows
    QTest::addColumn<bool>("dark");
    QTest::addColumn<QString>("summary");
    QTest::addColumn<QStringList>("marked"); // pieces the markup holds

    QTest::newRow("finished, light") << u"see you tmrw"_s << QStringList { u"see you tomorrow"_s } << false
                                     << u"1 word changed"_s
                                     << QStringList { u"<s><font color=\"#e5372c\">tmrw"_s,
                                            u"<u><font color=\"#28a745\">tomorrow"_s };
    QTest::newRow("finished, dark") << u"see you tmrw"_s << QStringList { u"see you tomorrow"_s } << true
                                    << u"1 word changed"_s
                                    << QStringList { u"<s><font color=\"#ff453a\">tmrw"_s,
                                           u"<u><font color=\"#30d158\">tomorrow"_s };
    QTest::newRow("streamed, fragment by fragment")
        << u"pls send the report by fri"_s
        << QStringList { u"Could"_s, u"Could you send"_s, u"Could you send the report"_s,
               u"Could you send the report by Friday?"_s }
        << false << u"4 words changed"_s
        << QStringList { u"<u><font color=\"#28a745\">Could you </font></u>"_s, u"Friday?</font></u>"_s };
}

void TestDiffMarks::marksFollowTheText()
{
    QFETCH(QString, original);
    QFETCH(QStringList, stream);
    QFETCH(bool, dark);
    QFETCH(QString, summary);
    QFETCH(QStringList, marked);

    const QPalette before = QGuiApplication::palette();
    if (dark) {
        QPalette palette = before;
        palette.setColor(QPalette::Window, QColor(0x26, 0x26, 0x28));
        palette.setColor(QPalette::WindowText, QColor(0xec, 0xec, 0xee));
        QGuiApplication::setPalette(palette);
    }
    View view;
    view.diff->setProperty("original", original);
    view.diff->setProperty("partial", stream.size() > 1);
    for (const QString &text : stream)
        view.diff->setProperty("result", text); // faster than a frame: only the last is sure to be compared
    view.diff->setProperty("partial", false);
    QTRY_VERIFY(view.diff->property("current").toBool());
    QCOMPARE(view.shown(u"diffSummary"_s), summary);
    const QString markup = view.shown(u"diffText"_s);
    for (const QString &piece : marked)
        QVERIFY2(markup.contains(piece), qPrintable(markup));
    QGuiApplication::setPalette(before);
}

void TestDiffMarks::hiddenComparesNothing()
{
    View view;
    view.diff->setVisible(false);
    view.diff->setProperty("original", u"a b"_s);
    view.diff->setProperty("result", u"a c"_s);
    QVERIFY(view.diff->property("current").toBool());
    QCOMPARE(view.shown(u"diffText"_s), QString());
    // Shown again, the marks are made for what is there now.
    view.diff->setVisible(true);
    QTRY_COMPARE(view.shown(u"diffSummary"_s), u"1 word changed"_s);
}

QTEST_MAIN(TestDiffMarks)
#include "TestDiffMarks.moc"
