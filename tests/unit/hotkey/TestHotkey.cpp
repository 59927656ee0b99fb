// Faults: the shortcut missed under a lock or an unusual modifier map, taken with extra keys, a grab retried
// or waiting for the accessibility bus; a saved instruction's keys grabbed as another key, without their
// modifier, or rewriting with another instruction's words.
#include "FakeKeyboardGrab.h"
#include "Shortcut.h"
#include "StdoutCapture.h"
#include "portal/PortalGlobalShortcuts.h"
#include "x11/KeyboardGrab.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <X11/keysym.h>

using namespace Qt::StringLiterals;

// What reaches the controller from the X server: a key event's keycode and modifier
// state, translated with the modifier mapping of the session, then judged.
using Bits = X11KeyboardGrab::ModifierBits;
Q_DECLARE_METATYPE(Bits)

namespace {
constexpr quint16 Shift = XCB_MOD_MASK_SHIFT;
constexpr quint16 Lock = XCB_MOD_MASK_LOCK;
constexpr quint16 Ctrl = XCB_MOD_MASK_CONTROL;
constexpr quint16 Mod1 = XCB_MOD_MASK_1;
constexpr quint16 Mod2 = XCB_MOD_MASK_2;
constexpr quint16 Mod3 = XCB_MOD_MASK_3;
constexpr quint16 Mod4 = XCB_MOD_MASK_4;
constexpr quint16 Mod5 = XCB_MOD_MASK_5;
constexpr xcb_keycode_t hPosition = 43;
constexpr xcb_keycode_t jPosition = 44;

const Bits usual { .alt = Mod1, .super = Mod4, .numLock = Mod2, .scrollLock = 0 };
const Bits scrollLockMapped { .alt = Mod1, .super = Mod4, .numLock = Mod2, .scrollLock = Mod3 };
const Bits numLockOnMod3 { .alt = Mod1, .super = Mod4, .numLock = Mod3, .scrollLock = 0 };
const Bits altOnMod3 { .alt = Mod3, .super = Mod4, .numLock = Mod2, .scrollLock = 0 };
const Bits noNumLock { .alt = Mod1, .super = Mod4, .numLock = 0, .scrollLock = 0 };
} // namespace

class TestHotkey : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keyEvents_data()
    {
        QTest::addColumn<Bits>("bits");
        QTest::addColumn<int>("keycode");
        QTest::addColumn<int>("state");
        QTest::addColumn<bool>("shortcut");

        QTest::newRow("Ctrl+Alt+H") << usual << int(hPosition) << Ctrl + Mod1 << true;
        QTest::newRow("with every lock")
            << scrollLockMapped << int(hPosition) << Ctrl + Mod1 + Mod2 + Mod3 + Lock << true;
        QTest::newRow("with AltGr (level three)") << usual << int(hPosition) << Ctrl + Mod1 + Mod5 << true;
        QTest::newRow("Num Lock on Mod3") << numLockOnMod3 << int(hPosition) << Ctrl + Mod1 + Mod3 << true;
        QTest::newRow("Alt on Mod3") << altOnMod3 << int(hPosition) << Ctrl + Mod3 << true;
        QTest::newRow("Mod1 is not Alt there") << altOnMod3 << int(hPosition) << Ctrl + Mod1 << false;
        QTest::newRow("Shift too") << usual << int(hPosition) << Ctrl + Mod1 + Shift << false;
        QTest::newRow("Super too") << usual << int(hPosition) << Ctrl + Mod1 + Mod4 << false;
        QTest::newRow("Ctrl+H") << usual << int(hPosition) << int(Ctrl) << false;
        QTest::newRow("Alt+H") << usual << int(hPosition) << int(Mod1) << false;
        QTest::newRow("Ctrl+Alt on the J position") << usual << int(jPosition) << Ctrl + Mod1 << false;
    }
    void keyEvents()
    {
        QFETCH(Bits, bits);
        QFETCH(int, keycode);
        QFETCH(int, state);

        const auto [keyCode, flags]
            = X11KeyboardGrab::translate(xcb_keycode_t(keycode), quint16(state), bits);
        QTEST(Shortcut::isHotkey(keyCode, flags), "shortcut");
    }
    void everyGrabbedStateIsTheShortcut_data()
    {
        QTest::addColumn<Bits>("bits");
        QTest::addColumn<int>("combinations"); // Caps Lock always, Num and Scroll Lock where mapped

        QTest::newRow("usual") << usual << 4;
        QTest::newRow("Scroll Lock mapped") << scrollLockMapped << 8;
        QTest::newRow("no Num Lock key") << noNumLock << 2;
        QTest::newRow("Alt on Mod3") << altOnMod3 << 4;
    }
    void everyGrabbedStateIsTheShortcut()
    {
        QFETCH(Bits, bits);
        QFETCH(int, combinations);

        const QList<quint16> states = X11KeyboardGrab::grabStates(bits);
        QCOMPARE(states.size(), combinations);
        for (const quint16 state : states) {
            QCOMPARE(quint16(state & (Ctrl | bits.alt)), quint16(Ctrl | bits.alt));
            const auto [keyCode, flags] = X11KeyboardGrab::translate(hPosition, state, bits);
            QVERIFY2(Shortcut::isHotkey(keyCode, flags), qPrintable(QString::number(state, 16)));
        }
    }
    // A saved instruction's shortcut as X grabs it and as the shortcuts portal is asked for it;
    // a key without Ctrl, Alt or Super is none (it would take the user's typing).
    void instructionKeys_data()
    {
        QTest::addColumn<QString>("sequence");
        QTest::addColumn<Bits>("bits");
        QTest::addColumn<quint32>("keysym"); // 0: not grabbed
        QTest::addColumn<quint16>("state");
        QTest::addColumn<QString>("trigger"); // the portal's

        QTest::newRow("Ctrl+Alt+J") << u"Ctrl+Alt+J"_s << usual << quint32(XK_j) << quint16(Ctrl | Mod1)
                                    << u"CTRL+ALT+J"_s;
        QTest::newRow("Alt where the map puts it")
            << u"Ctrl+Alt+J"_s << altOnMod3 << quint32(XK_j) << quint16(Ctrl | Mod3) << u"CTRL+ALT+J"_s;
        QTest::newRow("Ctrl+Shift+F5")
            << u"Ctrl+Shift+F5"_s << usual << quint32(XK_F5) << quint16(Ctrl | Shift) << u"CTRL+SHIFT+F5"_s;
        QTest::newRow("Super+Space") << u"Meta+Space"_s << usual << quint32(XK_space) << quint16(Mod4)
                                     << u"LOGO+SPACE"_s;
        QTest::newRow("a digit") << u"Ctrl+Alt+1"_s << usual << quint32(XK_1) << quint16(Ctrl | Mod1)
                                 << u"CTRL+ALT+1"_s;
        QTest::newRow("a letter alone") << u"J"_s << usual << quint32(0) << quint16(0) << u"J"_s;
        QTest::newRow("Shift alone") << u"Shift+F5"_s << usual << quint32(0) << quint16(0) << u"SHIFT+F5"_s;
        QTest::newRow("nothing") << QString() << usual << quint32(0) << quint16(0) << QString();
    }
    void instructionKeys()
    {
        QFETCH(QString, sequence);
        QFETCH(Bits, bits);
        const auto [keysym, state] = X11KeyboardGrab::combination(sequence, bits);
        QTEST(keysym, "keysym");
        QTEST(state, "state");
        QTEST(PortalGlobalShortcuts::trigger(sequence), "trigger");
    }

    // Each saved instruction with words and keys gets its shortcut once the grab runs, and
    // again when they change; a press rewrites with that one's words, queued.
    void instructionShortcuts()
    {
        FakeKeyboardGrab grab;
        Shortcut shortcut(&grab);
        shortcut.setInstructionShortcuts({ u"in German"_s, u"  "_s, u"shorter"_s, u"formal"_s },
            { u"Ctrl+Alt+J"_s, u"Ctrl+Alt+K"_s, QString(), u"Ctrl+Alt+F"_s });
        QVERIFY(grab.shortcuts.isEmpty()); // not before the grab is taken
        shortcut.startKeyGrab();
        QCOMPARE(grab.shortcuts, (QStringList { u"Ctrl+Alt+J"_s, u"Ctrl+Alt+F"_s }));

        QSignalSpy triggered(&shortcut, &Shortcut::instructionTriggered);
        grab.pressShortcut(1);
        QCOMPARE(triggered.size(), 0);
        QVERIFY(triggered.wait());
        QCOMPARE(triggered.constFirst().constFirst().toString(), u"formal"_s);

        shortcut.setInstructionShortcuts({ u"formal"_s }, { u"Ctrl+Alt+G"_s });
        QCOMPARE(grab.shortcuts, QStringList { u"Ctrl+Alt+G"_s });
        grab.pressShortcut(0);
        QVERIFY(triggered.wait());
        QCOMPARE(triggered.last().constFirst().toString(), u"formal"_s);
    }

    void startsAtLaunch_data()
    {
        QTest::addColumn<bool>("hasGrab"); // false: the desktop runs `tessary --trigger` instead
        QTest::addColumn<bool>("grabRefused");
        QTest::addColumn<bool>("available");
        QTest::addColumn<QString>("said"); // the diagnostic, empty when none
        QTest::addColumn<bool>("instructionKeyTaken"); // a saved instruction's Ctrl+Alt+J

        QTest::newRow("the shortcut starts") << true << false << true << QString() << true;
        // Nothing retries the grab: the tray says the shortcut is unavailable instead. The
        // user's own keys are theirs to have all the same.
        QTest::newRow("another program holds the shortcut")
            << true << true << false << u"^Ctrl\\+Alt\\+H is not available"_s << true;
        QTest::newRow("bound by the desktop")
            << false << false << false << u"^On this desktop Ctrl"_s << false;
    }
    // The grab is taken at once: nothing about it waits for the accessibility bus, whose
    // state the shortcut does not even know. Nothing goes to the rewrite log.
    void startsAtLaunch()
    {
        QFETCH(bool, hasGrab);
        QFETCH(bool, grabRefused);
        QFETCH(bool, available);
        QFETCH(QString, said);
        QFETCH(bool, instructionKeyTaken);

        FakeKeyboardGrab grab;
        grab.refuse = grabRefused;
        Shortcut shortcut(hasGrab ? &grab : nullptr);
        shortcut.setInstructionShortcuts({ u"in German"_s }, { u"Ctrl+Alt+J"_s });
        QSignalSpy availability(&shortcut, &Shortcut::availabilityChanged);
        StdoutCapture stdoutCapture;
        if (!said.isEmpty())
            QTest::ignoreMessage(available || !hasGrab ? QtInfoMsg : QtWarningMsg, QRegularExpression(said));

        shortcut.startKeyGrab();
        QCOMPARE(availability.size(), 1);
        QCOMPARE(availability.constFirst().constFirst().toBool(), available);
        QCOMPARE(shortcut.isRunning(), available);
        QCOMPARE(grab.starts, hasGrab ? 1 : 0);
        QCOMPARE(grab.running(), available);
        QCOMPARE(stdoutCapture.lines(), QStringList());
        QCOMPARE(grab.shortcuts, instructionKeyTaken ? QStringList { u"Ctrl+Alt+J"_s } : QStringList());

        // A key press through the grab is judged and queued, never run in the handler.
        if (available) {
            QSignalSpy triggered(&shortcut, &Shortcut::triggered);
            QVERIFY(grab.press(Keys::H, Keys::Control | Keys::Alt));
            QCOMPARE(triggered.size(), 0);
            QVERIFY(triggered.wait());
            QVERIFY(!grab.press(Keys::H, Keys::Control));
        }
    }
};

QTEST_GUILESS_MAIN(TestHotkey)
#include "TestHotkey.moc"
