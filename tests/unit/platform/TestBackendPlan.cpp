// Guards against the wrong mechanism for a desktop: an X grab in a Wayland session, keys
// typed where the desktop refuses them, a placement nobody there understands.
#include "BackendPlan.h"

#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(SessionFacts)
Q_DECLARE_METATYPE(BackendPlan)

namespace {
using F = SessionFacts;
using P = BackendPlan;

// The plan's choices in one list, so a failure shows all of them.
QList<int> choices(const BackendPlan &plan)
{
    return { int(plan.desktop), int(plan.shortcut), int(plan.keySynthesis), int(plan.clipboard),
        int(plan.placement) };
}
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
        const P plasma { P::Desktop::Plasma, P::Shortcut::Portal, P::KeySynthesis::RemoteDesktop,
            P::Clipboard::DataControl, P::Placement::KWinScript };
        const P otherWayland { P::Desktop::OtherWayland, P::Shortcut::None, P::KeySynthesis::None,
            P::Clipboard::PopupOnly, P::Placement::Compositor };
        QTest::newRow("X11 with a window manager") << F { u"xcb"_s, u"x11"_s, u"openbox"_s } << x11;
        QTest::newRow("Plasma on X11") << F { u"xcb"_s, u"x11"_s, u"KDE"_s, true, true } << x11;
        QTest::newRow("no session type, Qt on X11") << F { u"xcb"_s, QString(), QString() } << x11;
        QTest::newRow("Plasma 5.27 Wayland")
            << F { u"wayland"_s, u"wayland"_s, u"KDE"_s, true, true, true } << plasma;
        QTest::newRow("Plasma Wayland, Qt forced onto XWayland")
            << F { u"xcb"_s, u"wayland"_s, u"KDE"_s, true, true, true } << plasma;
        QTest::newRow("GNOME 43 Wayland: consent-bound remote desktop, no data control")
            << F { u"wayland"_s, u"wayland"_s, u"ubuntu:GNOME"_s, false, true }
            << P { P::Desktop::Gnome, P::Shortcut::GnomeKeybinding, P::KeySynthesis::None,
                   P::Clipboard::PopupOnly, P::Placement::Compositor };
        QTest::newRow("GNOME with the shortcuts portal")
            << F { u"wayland"_s, u"wayland"_s, u"GNOME"_s, true, true }
            << P { P::Desktop::Gnome, P::Shortcut::Portal, P::KeySynthesis::None, P::Clipboard::PopupOnly,
                   P::Placement::Compositor };
        QTest::newRow("sway") << F { u"wayland"_s, u"wayland"_s, u"sway"_s, false, false, true, true }
                              << P { P::Desktop::Wlroots, P::Shortcut::CompositorBinding,
                                     P::KeySynthesis::VirtualKeyboard, P::Clipboard::DataControl,
                                     P::Placement::Swaymsg };
        QTest::newRow("another wlroots compositor")
            << F { u"wayland"_s, u"wayland"_s, u"Hyprland"_s, false, false, true, true }
            << P { P::Desktop::Wlroots, P::Shortcut::CompositorBinding, P::KeySynthesis::VirtualKeyboard,
                   P::Clipboard::DataControl, P::Placement::Compositor };
        QTest::newRow("weston: nothing but the tray")
            << F { u"wayland"_s, u"wayland"_s, u"weston"_s } << otherWayland;
        QTest::newRow("no session type, Qt on Wayland")
            << F { u"wayland"_s, QString(), QString() } << otherWayland;
    }

    void plan()
    {
        QFETCH(SessionFacts, session);
        QFETCH(BackendPlan, expected);
        QCOMPARE(choices(planBackends(session)), choices(expected));
    }
};

QTEST_GUILESS_MAIN(TestBackendPlan)
#include "TestBackendPlan.moc"
