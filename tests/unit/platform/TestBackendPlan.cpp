// Guards against the wrong mechanism for a desktop: an X grab in a Wayland session, keys
// typed where the desktop refuses them, a placement nobody there understands.
#include "BackendPlan.h"

#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(SessionFacts)
Q_DECLARE_METATYPE(BackendPlan)

namespace {
SessionFacts facts(const QString &qt, const QString &type, const QString &desktop,
    bool shortcutsPortal = false, bool remoteDesktopPortal = false, bool dataControl = false,
    bool virtualKeyboard = false)
{
    return { qt, type, desktop, shortcutsPortal, remoteDesktopPortal, dataControl, virtualKeyboard };
}

using P = BackendPlan;
} // namespace

class TestBackendPlan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void plan_data()
    {
        QTest::addColumn<SessionFacts>("session");
        QTest::addColumn<BackendPlan>("expected");

        const P x11 {};
        QTest::newRow("X11 with a window manager") << facts(u"xcb"_s, u"x11"_s, u"openbox"_s) << x11;
        QTest::newRow("Plasma on X11") << facts(u"xcb"_s, u"x11"_s, u"KDE"_s, true, true) << x11;
        QTest::newRow("no session type, Qt on X11") << facts(u"xcb"_s, QString(), QString()) << x11;
        QTest::newRow("Plasma 5.27 Wayland")
            << facts(u"wayland"_s, u"wayland"_s, u"KDE"_s, true, true, true, false)
            << P { P::Desktop::Plasma, P::Shortcut::Portal, P::KeySynthesis::RemoteDesktop,
                   P::Clipboard::DataControl, P::Placement::KWinScript };
        QTest::newRow("Plasma Wayland, Qt forced onto XWayland")
            << facts(u"xcb"_s, u"wayland"_s, u"KDE"_s, true, true, true, false)
            << P { P::Desktop::Plasma, P::Shortcut::Portal, P::KeySynthesis::RemoteDesktop,
                   P::Clipboard::DataControl, P::Placement::KWinScript };
        QTest::newRow("GNOME 43 Wayland: consent-bound remote desktop, no data control")
            << facts(u"wayland"_s, u"wayland"_s, u"ubuntu:GNOME"_s, false, true, false, false)
            << P { P::Desktop::Gnome, P::Shortcut::GnomeKeybinding, P::KeySynthesis::None,
                   P::Clipboard::PopupOnly, P::Placement::Compositor };
        QTest::newRow("GNOME with the shortcuts portal")
            << facts(u"wayland"_s, u"wayland"_s, u"GNOME"_s, true, true, false, false)
            << P { P::Desktop::Gnome, P::Shortcut::Portal, P::KeySynthesis::None, P::Clipboard::PopupOnly,
                   P::Placement::Compositor };
        QTest::newRow("sway") << facts(u"wayland"_s, u"wayland"_s, u"sway"_s, false, false, true, true)
                              << P { P::Desktop::Wlroots, P::Shortcut::CompositorBinding,
                                     P::KeySynthesis::VirtualKeyboard, P::Clipboard::DataControl,
                                     P::Placement::Swaymsg };
        QTest::newRow("another wlroots compositor")
            << facts(u"wayland"_s, u"wayland"_s, u"Hyprland"_s, false, false, true, true)
            << P { P::Desktop::Wlroots, P::Shortcut::CompositorBinding, P::KeySynthesis::VirtualKeyboard,
                   P::Clipboard::DataControl, P::Placement::Compositor };
        QTest::newRow("weston: nothing but the tray")
            << facts(u"wayland"_s, u"wayland"_s, u"weston"_s)
            << P { P::Desktop::OtherWayland, P::Shortcut::None, P::KeySynthesis::None,
                   P::Clipboard::PopupOnly, P::Placement::Compositor };
        QTest::newRow("no session type, Qt on Wayland")
            << facts(u"wayland"_s, QString(), QString())
            << P { P::Desktop::OtherWayland, P::Shortcut::None, P::KeySynthesis::None,
                   P::Clipboard::PopupOnly, P::Placement::Compositor };
    }

    void plan()
    {
        QFETCH(SessionFacts, session);
        QFETCH(BackendPlan, expected);
        const BackendPlan plan = planBackends(session);
        QCOMPARE(int(plan.desktop), int(expected.desktop));
        QCOMPARE(int(plan.shortcut), int(expected.shortcut));
        QCOMPARE(int(plan.keySynthesis), int(expected.keySynthesis));
        QCOMPARE(int(plan.clipboard), int(expected.clipboard));
        QCOMPARE(int(plan.placement), int(expected.placement));
    }
};

QTEST_GUILESS_MAIN(TestBackendPlan)
#include "TestBackendPlan.moc"
