// Guards against the wrong mechanism for a desktop: an X grab in a Wayland session, keys
// typed where the desktop refuses them, a placement nobody there understands.
#include "BackendPlan.h"

#include <QProcessEnvironment>
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
        const P gnome { P::Desktop::Gnome, P::Shortcut::GnomeKeybinding, P::KeySynthesis::None,
            P::Clipboard::PopupOnly, P::Placement::Compositor };
        const P sway { P::Desktop::Sway, P::Shortcut::CompositorBinding, P::KeySynthesis::VirtualKeyboard,
            P::Clipboard::DataControl, P::Placement::Swaymsg };
        const P wlroots { P::Desktop::Wlroots, P::Shortcut::CompositorBinding,
            P::KeySynthesis::VirtualKeyboard, P::Clipboard::DataControl, P::Placement::Compositor };
        const P unknown { P::Desktop::OtherWayland, P::Shortcut::None, P::KeySynthesis::VirtualKeyboard,
            P::Clipboard::DataControl, P::Placement::Compositor };
        const P nameless { P::Desktop::OtherWayland, P::Shortcut::None, P::KeySynthesis::None,
            P::Clipboard::PopupOnly, P::Placement::Compositor };
        const QString socket = u"/run/user/1000/sway-ipc.1000.42.sock"_s;
        const auto wl = [](const QString &desktop, const QString &swaySocket = {}, bool portal = false) {
            return F { u"wayland"_s, u"wayland"_s, desktop, swaySocket, portal };
        };

        QTest::newRow("X11 with a window manager")
            << F { u"xcb"_s, u"x11"_s, u"openbox"_s, {}, false } << x11;
        QTest::newRow("Plasma on X11") << F { u"xcb"_s, u"x11"_s, u"KDE"_s, {}, false } << x11;
        QTest::newRow("no session type, Qt on X11") << F { u"xcb"_s, QString(), QString(), {}, false } << x11;
        // Without Qt's X connection there is nothing to grab the key on.
        QTest::newRow("X11, Qt offscreen") << F { u"offscreen"_s, u"x11"_s, u"openbox"_s, {}, false }
                                           << P { P::Desktop::X11, P::Shortcut::None, P::KeySynthesis::XTest,
                                                  P::Clipboard::Selection, P::Placement::X11 };
        QTest::newRow("Plasma 5.27 Wayland") << wl(u"KDE"_s) << plasma;
        QTest::newRow("Plasma Wayland, Qt forced onto XWayland")
            << F { u"xcb"_s, u"wayland"_s, u"KDE"_s, {}, false } << plasma;
        QTest::newRow("Plasma in lower case") << wl(u"kde"_s) << plasma;
        QTest::newRow("GNOME 43 Wayland: consent-bound remote desktop, no data control")
            << wl(u"ubuntu:GNOME"_s) << gnome;
        QTest::newRow("GNOME last of three") << wl(u"pop:ubuntu:GNOME"_s) << gnome;
        QTest::newRow("GNOME with the shortcuts portal")
            << wl(u"GNOME"_s, {}, true)
            << P { P::Desktop::Gnome, P::Shortcut::Portal, P::KeySynthesis::None, P::Clipboard::PopupOnly,
                   P::Placement::Compositor };
        // The first name that is known decides; empty parts are skipped.
        QTest::newRow("Unity then GNOME, an empty part") << wl(u"Unity::GNOME"_s) << gnome;
        QTest::newRow("the portal's file outside GNOME changes nothing") << wl(u"KDE"_s, {}, true) << plasma;
        QTest::newRow("sway") << wl(u"sway"_s, socket) << sway;
        // Without its socket sway cannot be asked where windows are.
        QTest::newRow("sway without SWAYSOCK")
            << wl(u"sway"_s)
            << P { P::Desktop::Sway, P::Shortcut::CompositorBinding, P::KeySynthesis::VirtualKeyboard,
                   P::Clipboard::DataControl, P::Placement::Compositor };
        // A socket left over in the environment does not make another compositor sway.
        QTest::newRow("Hyprland with a stray SWAYSOCK") << wl(u"Hyprland"_s, socket) << wlroots;
        QTest::newRow("wlroots by its own name") << wl(u"wlroots"_s) << wlroots;
        QTest::newRow("an unknown compositor: its protocols are tried") << wl(u"weston"_s) << unknown;
        QTest::newRow("no session type, Qt on Wayland")
            << F { u"wayland"_s, QString(), QString(), {}, false } << nameless;
    }

    // The variables each fact comes from, and nothing else of the environment.
    void facts()
    {
        QProcessEnvironment env;
        env.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
        env.insert(u"XDG_CURRENT_DESKTOP"_s, u"sway"_s);
        env.insert(u"SWAYSOCK"_s, u"/tmp/sway.sock"_s);
        env.insert(u"DESKTOP_SESSION"_s, u"gnome"_s);
        const SessionFacts facts = SessionFacts::fromEnvironment(env, u"wayland"_s);
        QCOMPARE(QStringList({ facts.qtPlatform, facts.sessionType, facts.currentDesktop, facts.swaySocket }),
            QStringList({ u"wayland"_s, u"wayland"_s, u"sway"_s, u"/tmp/sway.sock"_s }));
        QCOMPARE(planBackends(facts).desktop, BackendPlan::Desktop::Sway);
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
