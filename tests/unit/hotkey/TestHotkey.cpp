// Faults: the shortcut missed under a lock or an unusual modifier map, taken with extra keys, a grab retried.
#include "FakeAccessibility.h"
#include "FakeKeyboardGrab.h"
#include "Shortcut.h"
#include "StdoutCapture.h"
#include "x11/KeyboardGrab.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

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
    void permissionPoll_data()
    {
        QTest::addColumn<bool>("grabRefused");

        QTest::newRow("the shortcut starts") << false;
        // Nothing retries the grab: the tray says the shortcut is unavailable instead.
        QTest::newRow("another program holds the shortcut") << true;
    }
    // Waiting for access to other programs' text: a look every interval, never prompting,
    // until it is there; then the shortcut is taken once and the looking stops. Silent
    // throughout. The interval is the wiring's (2 s in the program); short here.
    void permissionPoll()
    {
        QFETCH(bool, grabRefused);

        FakeAccessibility accessibility;
        accessibility.trusted = false;
        FakeKeyboardGrab grab;
        grab.refuse = grabRefused;
        Shortcut shortcut(&grab, &accessibility, std::chrono::milliseconds(10));
        QSignalSpy availability(&shortcut, &Shortcut::availabilityChanged);
        StdoutCapture stdoutCapture;

        shortcut.pollAccessibilityPermission();
        QVERIFY(accessibility.trustQueries.isEmpty()); // the first look comes after one interval
        QTRY_VERIFY(accessibility.trustQueries.size() >= 2);
        QCOMPARE(grab.starts, 0);

        if (grabRefused)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Ctrl\\+Alt\\+H is not available"_s));
        accessibility.trusted = true;
        QVERIFY(availability.wait());
        const qsizetype looks = accessibility.trustQueries.size();
        QCOMPARE(accessibility.trustQueries, QList<bool>(looks, false));
        QCOMPARE(availability.constFirst().constFirst().toBool(), !grabRefused);
        QCOMPARE(shortcut.isRunning(), !grabRefused);
        QCOMPARE(grab.running(), !grabRefused);

        // Looking has stopped: a second poll of the same interval, started now, looks once;
        // a first poll still going on would have looked before it.
        Shortcut later(nullptr, &accessibility, std::chrono::milliseconds(10));
        later.pollAccessibilityPermission();
        QSignalSpy laterAvailability(&later, &Shortcut::availabilityChanged);
        // Without a grab the desktop binds the shortcut: that is said, not warned about.
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(u"^On this desktop Ctrl\\+Alt\\+H is bound"_s));
        QVERIFY(laterAvailability.wait());
        QCOMPARE(accessibility.trustQueries.size(), looks + 1);
        QCOMPARE(grab.starts, 1);
        QCOMPARE(stdoutCapture.lines(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestHotkey)
#include "TestHotkey.moc"
