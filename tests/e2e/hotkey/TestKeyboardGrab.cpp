// Faults: the shortcut missed under a lock or layout, other keys swallowed, a half-taken grab left behind,
// a saved instruction's own key not taken while another program holds Ctrl+Alt+H.
#include "DeliveredKeys.h"
#include "DesktopFixture.h"
#include "Shortcut.h"
#include "x11/KeyboardGrab.h"
#include "x11/X11Connection.h"

#include <QTest>

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

// What becomes of a key press.
enum class Outcome {
    Shortcut, // taken by the grab: one rewrite, the editor sees nothing of the letter
    Passed, // reaches the editor, starts nothing
    PassedOpensMenu, // the same, and the editor opens a menu, which holds the keyboard
};

constexpr xcb_keycode_t dvorakHKeycode = 44; // where Dvorak keeps the letter H
constexpr xcb_keycode_t controlKeycode = 37; // Control_L

// Num Lock is Mod2 with the layouts used here.
constexpr quint16 lockMasks = XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2;

// The keyboard's modifier state, locks included.
quint16 modifierState()
{
    const auto x11 = X11Connection::open();
    xcb_connection_t *connection = x11->connection();
    auto *pointer = xcb_query_pointer_reply(connection, xcb_query_pointer(connection, x11->root()), nullptr);
    const quint16 state = pointer ? pointer->mask : 0;
    std::free(pointer);
    return state;
}

void switchOffLocks()
{
    const quint16 state = modifierState();
    if (state & XCB_MOD_MASK_LOCK)
        Desktop::run(u"xdotool"_s, { u"key"_s, u"Caps_Lock"_s });
    if (state & XCB_MOD_MASK_2)
        Desktop::run(u"xdotool"_s, { u"key"_s, u"Num_Lock"_s });
}

} // namespace

Q_DECLARE_METATYPE(Outcome)

class TestKeyboardGrab : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "runs inside scripts/headless-session");
        Desktop::run(u"setxkbmap"_s, { u"us"_s });
        m_delivered = std::make_unique<DeliveredKeys>();
        QVERIFY2(m_delivered->available(), "the X server has no XInput 2");
        m_editor = std::make_unique<Desktop::Editor>(u"Some text.\n"_s, false);
        QVERIFY(m_editor->waitUntilActive());
        m_editorWindow = Desktop::activeWindow();
        m_delivered->watch(m_editorWindow);
    }
    void init()
    {
        focusEditor();
        m_rewrites = 0;
        m_grab = std::make_unique<X11KeyboardGrab>();
        QVERIFY(startGrab(*m_grab));
    }
    void cleanup()
    {
        m_grab.reset();
        // What a case changed goes back, also when it failed half-way.
        Desktop::run(u"setxkbmap"_s, { u"us"_s });
        switchOffLocks();
    }
    void shortcutIsTakenOthersPass_data()
    {
        QTest::addColumn<QStringList>("layout"); // setxkbmap arguments
        QTest::addColumn<QString>("lock"); // a lock key switched on first
        QTest::addColumn<QString>("keys"); // as xdotool names them
        QTest::addColumn<Outcome>("outcome");

        const QStringList us { u"us"_s };
        const QStringList dvorak { u"us"_s, u"-variant"_s, u"dvorak"_s };
        QTest::newRow("Ctrl+Alt+H") << us << QString() << u"ctrl+alt+h"_s << Outcome::Shortcut;
        QTest::newRow("Caps Lock on") << us << u"Caps_Lock"_s << u"ctrl+alt+h"_s << Outcome::Shortcut;
        QTest::newRow("Num Lock on") << us << u"Num_Lock"_s << u"ctrl+alt+h"_s << Outcome::Shortcut;
        QTest::newRow("German layout")
            << QStringList { u"de"_s } << QString() << u"ctrl+alt+h"_s << Outcome::Shortcut;
        // Dvorak puts D where H is: the key position counts, not the letter.
        QTest::newRow("Dvorak, the key in the H position")
            << dvorak << QString() << u"ctrl+alt+d"_s << Outcome::Shortcut;
        QTest::newRow("Dvorak, the letter H elsewhere")
            << dvorak << QString() << u"ctrl+alt+h"_s << Outcome::Passed;
        QTest::newRow("Ctrl+Alt+Shift+H") << us << QString() << u"ctrl+alt+shift+h"_s << Outcome::Passed;
        QTest::newRow("Super+Ctrl+Alt+H") << us << QString() << u"super+ctrl+alt+h"_s << Outcome::Passed;
        QTest::newRow("Ctrl+H") << us << QString() << u"ctrl+h"_s << Outcome::Passed;
        QTest::newRow("Alt+H") << us << QString() << u"alt+h"_s << Outcome::PassedOpensMenu;
        QTest::newRow("H alone") << us << QString() << u"h"_s << Outcome::Passed;
    }
    void shortcutIsTakenOthersPass()
    {
        QFETCH(QStringList, layout);
        QFETCH(QString, lock);
        QFETCH(QString, keys);
        QFETCH(Outcome, outcome);

        if (layout != QStringList { u"us"_s })
            Desktop::run(u"setxkbmap"_s, layout);
        if (!lock.isEmpty()) {
            Desktop::run(u"xdotool"_s, { u"key"_s, lock });
            QVERIFY2(modifierState() & lockMasks, "the lock did not come on");
        }

        Desktop::run(u"xdotool"_s, { u"key"_s, keys });
        QVERIFY(m_delivered->settle());
        // The letter key itself (H, or D in its place); the modifier keys around it reach the
        // editor either way.
        const QList<int> &presses = m_delivered->presses;
        const bool reachedEditor
            = presses.contains(X11KeyboardGrab::hKeycode) || presses.contains(dvorakHKeycode);
        if (outcome == Outcome::Shortcut) {
            QVERIFY2(presses.contains(controlKeycode), "the editor was not in front");
            QVERIFY2(!reachedEditor, "the editor received the shortcut");
            QTRY_COMPARE(m_rewrites, 1);
            return;
        }
        // A press the grab had taken would never have reached the editor.
        QVERIFY2(reachedEditor, "the grab swallowed a key that was not the shortcut");
        QCOMPARE(m_rewrites, 0);
        if (outcome == Outcome::PassedOpensMenu) {
            // The menu opens once the editor has handled the key; it must be closed again,
            // or it would take the keys of the next case.
            QTRY_VERIFY(m_delivered->keyboardGrabbed());
            Desktop::run(u"xdotool"_s, { u"key"_s, u"Escape"_s });
            QTRY_VERIFY(!m_delivered->keyboardGrabbed());
        }
    }
    void holdingRepeats()
    {
        Desktop::run(u"xdotool"_s, { u"keydown"_s, u"ctrl+alt+h"_s });
        // Each automatic repeat is a request of its own, and none of them reaches the editor.
        QTRY_VERIFY_WITH_TIMEOUT(m_rewrites >= 3, 10000);
        Desktop::run(u"xdotool"_s, { u"keyup"_s, u"ctrl+alt+h"_s });
        QVERIFY(m_delivered->settle());
        QVERIFY(m_delivered->presses.contains(controlKeycode));
        QVERIFY(!m_delivered->presses.contains(X11KeyboardGrab::hKeycode));
    }
    void refusedWhileAnotherProgramHoldsIt()
    {
        m_grab.reset();
        xcb_connection_t *other = xcb_connect(nullptr, nullptr);
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
        const auto holder = xcb_grab_key_checked(other, 0, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1,
            X11KeyboardGrab::hKeycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        QCOMPARE(xcb_request_check(other, holder), nullptr);

        X11KeyboardGrab refused;
        QVERIFY(!refused.start([](int, quint64) { return true; }));
        // A saved instruction's own key is still the user's to have.
        int instructionPresses = 0;
        QVERIFY(refused.setShortcuts({ u"Ctrl+Alt+J"_s }, [&](int) { ++instructionPresses; }));
        Desktop::run(u"xdotool"_s, { u"key"_s, u"ctrl+alt+j"_s });
        QTRY_COMPARE(instructionPresses, 1);
        refused.stop();

        // Nothing half-taken is left behind: once the other program lets go, it works.
        xcb_disconnect(other);
        X11KeyboardGrab later;
        QVERIFY(startGrab(later));
        Desktop::run(u"xdotool"_s, { u"key"_s, u"ctrl+alt+h"_s });
        QVERIFY(m_delivered->settle());
        QVERIFY(!m_delivered->presses.contains(X11KeyboardGrab::hKeycode));
        QTRY_COMPARE(m_rewrites, 1);
    }

private:
    void focusEditor()
    {
        // Activating the window that is already active still makes the window manager take
        // the focus away and give it back, which could drop a key of the next case.
        if (Desktop::activeWindow() != m_editorWindow)
            Desktop::run(u"xdotool"_s, { u"windowactivate"_s, u"--sync"_s, QString::number(m_editorWindow) });
        QTRY_VERIFY2(m_delivered->hasFocus(), "the editor does not have the keyboard focus");
        QTRY_VERIFY2(!m_delivered->keyboardGrabbed(), "something holds the keyboard");
        m_delivered->presses.clear();
    }
    // What the controller does with a press the grab hands over: counts a rewrite when
    // it is the shortcut.
    bool startGrab(X11KeyboardGrab &grab)
    {
        return grab.start([this](int keyCode, quint64 flags) {
            if (!Shortcut::isHotkey(keyCode, flags))
                return false;
            ++m_rewrites;
            return true;
        });
    }

    std::unique_ptr<Desktop::Editor> m_editor;
    xcb_window_t m_editorWindow = XCB_NONE;
    std::unique_ptr<DeliveredKeys> m_delivered;
    std::unique_ptr<X11KeyboardGrab> m_grab;
    int m_rewrites = 0;
};

QTEST_GUILESS_MAIN(TestKeyboardGrab)
#include "TestKeyboardGrab.moc"
