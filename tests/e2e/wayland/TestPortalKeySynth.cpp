// Guards against a paste that never arrives on Wayland: the remote-desktop session not
// started, keys sent before it was, or Ctrl released before the V.
#include "portal/PortalKeySynth.h"

#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;

class TestPortalKeySynth : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pasteReachesTheFocusedWindow()
    {
        QLineEdit editor;
        editor.show();
        QVERIFY(QTest::qWaitForWindowActive(&editor));

        // The clipboard as another program left it.
        QProcess copy;
        copy.start(u"wl-copy"_s, { u"pasted through the desktop"_s });
        QVERIFY(copy.waitForFinished(5000));

        PortalKeySynth keys;
        bool posted = false;
        keys.post(Keys::V, Keys::Super, [&] { posted = true; });
        QTRY_VERIFY_WITH_TIMEOUT(posted, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(editor.text(), u"pasted through the desktop"_s, 10000);

        // The session is kept: a second paste needs no new consent.
        editor.clear();
        posted = false;
        keys.post(Keys::V, Keys::Super, [&] { posted = true; });
        QTRY_VERIFY_WITH_TIMEOUT(posted, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(editor.text(), u"pasted through the desktop"_s, 10000);
    }
};

QTEST_MAIN(TestPortalKeySynth)
#include "TestPortalKeySynth.moc"
