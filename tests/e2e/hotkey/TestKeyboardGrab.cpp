#include "x11/KeyboardGrab.h"

#include <QProcess>
#include <QSocketNotifier>
#include <QTest>

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

constexpr xcb_keycode_t shiftKeycode = 50; // Shift_L, the "all delivered" marker

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(15000) || process.exitCode() != 0)
        qWarning() << program << arguments << "failed:" << process.readAllStandardError();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

void xdotool(const QStringList &arguments)
{
    run(u"xdotool"_s, arguments);
}

// The application in front: a plain X window of another connection that records the
// key presses it receives. What the grab takes never arrives here. (GTK editors take
// their keys through XInput 2, which hides them from a second core listener.)
class KeyWatcher : public QObject
{
public:
    KeyWatcher()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        window = xcb_generate_id(m_connection);
        const uint32_t mask = XCB_EVENT_MASK_KEY_PRESS;
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 300, 200, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_EVENT_MASK, &mask);
        xcb_map_window(m_connection, window);
        xcb_flush(m_connection);
        m_notifier
            = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read);
        connect(m_notifier.get(), &QSocketNotifier::activated, this, &KeyWatcher::read);
    }
    ~KeyWatcher() override
    {
        m_notifier.reset();
        xcb_disconnect(m_connection);
    }

    xcb_window_t window = XCB_NONE;
    QList<int> presses; // keycodes, in order

    void read()
    {
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            if ((event->response_type & ~0x80) == XCB_KEY_PRESS)
                presses.append(reinterpret_cast<xcb_key_press_event_t *>(event)->detail);
            std::free(event);
        }
    }

private:
    xcb_connection_t *m_connection;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace

class TestKeyboardGrab : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void shortcutIsTakenOthersPass_data();
    void shortcutIsTakenOthersPass();
    void holdingRepeats();
    void refusedWhileAnotherProgramHoldsIt();

private:
    void focusEditor();

    std::unique_ptr<KeyWatcher> m_editor;
    std::unique_ptr<X11KeyboardGrab> m_grab;
    QList<quint64> m_seen; // flags of every press the grab reported
};

void TestKeyboardGrab::initTestCase()
{
    QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "runs inside scripts/headless-session");
    m_editor = std::make_unique<KeyWatcher>();
}

void TestKeyboardGrab::cleanupTestCase()
{
    m_editor.reset();
}

void TestKeyboardGrab::init()
{
    run(u"setxkbmap"_s, { u"us"_s });
    focusEditor();
    m_seen.clear();
    m_grab = std::make_unique<X11KeyboardGrab>();
    QVERIFY(m_grab->start([this](int keyCode, quint64 flags) {
        if (keyCode == Keys::H)
            m_seen.append(flags);
        return true;
    }));
}

void TestKeyboardGrab::cleanup()
{
    m_grab.reset();
    run(u"setxkbmap"_s, { u"us"_s });
}

void TestKeyboardGrab::focusEditor()
{
    const QString window = QString::number(m_editor->window);
    xdotool({ u"windowactivate"_s, u"--sync"_s, window });
    xdotool({ u"windowfocus"_s, u"--sync"_s, window });
    m_editor->presses.clear();
}

void TestKeyboardGrab::shortcutIsTakenOthersPass_data()
{
    QTest::addColumn<QStringList>("before"); // xdotool arguments; setxkbmap arguments after "layout"
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<bool>("taken");

    const QStringList none;
    QTest::newRow("Ctrl+Alt+H") << none << u"ctrl+alt+h"_s << none << true;
    QTest::newRow("Caps Lock on") << QStringList { u"key"_s, u"Caps_Lock"_s } << u"ctrl+alt+h"_s
                                  << QStringList { u"key"_s, u"Caps_Lock"_s } << true;
    QTest::newRow("Num Lock on") << QStringList { u"key"_s, u"Num_Lock"_s } << u"ctrl+alt+h"_s
                                 << QStringList { u"key"_s, u"Num_Lock"_s } << true;
    QTest::newRow("German layout") << QStringList { u"layout"_s, u"de"_s } << u"ctrl+alt+h"_s << none << true;
    QTest::newRow("French layout") << QStringList { u"layout"_s, u"fr"_s } << u"ctrl+alt+h"_s << none << true;
    // Dvorak puts D where H is: the key position counts, not the letter.
    QTest::newRow("Dvorak, the key in the H position") << QStringList { u"layout"_s, u"us"_s, u"-variant"_s,
        u"dvorak"_s } << u"ctrl+alt+d"_s << none << true;
    QTest::newRow("Dvorak, the letter H elsewhere") << QStringList { u"layout"_s, u"us"_s, u"-variant"_s,
        u"dvorak"_s } << u"ctrl+alt+h"_s << none << false;
    QTest::newRow("Ctrl+Alt+Shift+H") << none << u"ctrl+alt+shift+h"_s << none << false;
    QTest::newRow("Super+Ctrl+Alt+H") << none << u"super+ctrl+alt+h"_s << none << false;
    QTest::newRow("Ctrl+H") << none << u"ctrl+h"_s << none << false;
    QTest::newRow("Alt+H") << none << u"alt+h"_s << none << false;
    QTest::newRow("H alone") << none << u"h"_s << none << false;
}

void TestKeyboardGrab::shortcutIsTakenOthersPass()
{
    QFETCH(QStringList, before);
    QFETCH(QString, keys);
    QFETCH(QStringList, after);
    QFETCH(bool, taken);

    const auto apply = [](QStringList step) {
        if (step.isEmpty())
            return;
        if (step.first() == u"layout"_s)
            run(u"setxkbmap"_s, step.mid(1));
        else
            xdotool(step);
    };
    apply(before);
    KeyWatcher &editor = *m_editor;

    xdotool({ u"key"_s, keys });
    xdotool({ u"key"_s, u"shift"_s });
    QTRY_VERIFY(editor.presses.contains(shiftKeycode));

    // The letter key itself (H, or D in its place; 44 is where Dvorak keeps H);
    // the modifier keys around it always reach the editor.
    const bool reachedEditor
        = editor.presses.contains(X11KeyboardGrab::hKeycode) || editor.presses.contains(44);
    if (taken) {
        QTRY_COMPARE(m_seen.size(), 1);
        QCOMPARE(m_seen.first(), Keys::Control | Keys::Option);
        QVERIFY2(!reachedEditor, "the editor received the shortcut");
    } else {
        // A press the grab had taken would never have reached the editor.
        QVERIFY2(reachedEditor, "the grab swallowed a key that was not the shortcut");
        QVERIFY(m_seen.isEmpty());
    }
    apply(after);
}

void TestKeyboardGrab::holdingRepeats()
{
    xdotool({ u"keydown"_s, u"ctrl+alt+h"_s });
    // Each automatic repeat is a request of its own.
    QTRY_VERIFY_WITH_TIMEOUT(m_seen.size() >= 3, 10000);
    xdotool({ u"keyup"_s, u"ctrl+alt+h"_s });
}

void TestKeyboardGrab::refusedWhileAnotherProgramHoldsIt()
{
    m_grab.reset();
    xcb_connection_t *other = xcb_connect(nullptr, nullptr);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
    const auto holder = xcb_grab_key_checked(other, 0, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1,
        X11KeyboardGrab::hKeycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    QCOMPARE(xcb_request_check(other, holder), nullptr);

    X11KeyboardGrab refused;
    QVERIFY(!refused.start([](int, quint64) { return true; }));

    // Nothing half-taken is left behind: once the other program lets go, it works.
    xcb_disconnect(other);
    X11KeyboardGrab later;
    QVERIFY(later.start([this](int, quint64 flags) {
        m_seen.append(flags);
        return true;
    }));
    focusEditor();
    xdotool({ u"key"_s, u"ctrl+alt+h"_s });
    QTRY_COMPARE(m_seen.size(), 1);
}

QTEST_GUILESS_MAIN(TestKeyboardGrab)
#include "TestKeyboardGrab.moc"
