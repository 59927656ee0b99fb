#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

class QSocketNotifier;

struct WindowClass
{
    QString instance;
    QString className;
};

// Our own connection to the X server, shared by the workspace, selection and key
// synthesis backends. Kept apart from Qt's connection so that nothing here depends on
// which Qt platform plugin runs, and round trips never see Qt's events.
//
// Replies and events are read when the socket has something, in the event loop: a
// request is sent, and its answer runs when the reply is in. Nothing waits on the server.
class X11Connection : public QObject
{
    Q_OBJECT
public:
    // nullptr when there is no X server to talk to.
    static std::shared_ptr<X11Connection> open();
    ~X11Connection() override;

    xcb_connection_t *connection() const { return m_connection; }
    xcb_window_t root() const { return m_screen->root; }
    xcb_ewmh_connection_t *ewmh() { return &m_ewmh; }
    // An input-only window of ours: the requestor of selections, the source of timestamps.
    xcb_window_t ownWindow() const { return m_ownWindow; }
    xcb_atom_t selectionProperty() const { return m_selectionProperty; }
    xcb_atom_t clipboardAtom() const { return m_clipboard; }
    xcb_atom_t incrementalAtom() const { return m_incr; }
    xcb_atom_t targetsAtom() const { return m_targets; }
    // Whether two windows were created by the same client (the same program's connection).
    bool sameClient(xcb_window_t a, xcb_window_t b) const;

    // Runs answer with the reply to the request of that sequence number once it is in,
    // or with nullptr if the request failed. The reply is freed after answer returns.
    void whenReplied(unsigned int sequence, std::function<void(void *reply)> answer);
    // Hands every event that arrives to listener until it returns true.
    void whenEvent(std::function<bool(const xcb_generic_event_t *event)> listener);

    // Asks the owner of selection for its contents as target, onto our window; answer
    // gets the bytes and their type, or nullopt when the owner refuses, does not answer
    // within a second, or sends them in increments (large contents: the type is then
    // incrementalAtom()). One at a time.
    using Converted = std::function<void(std::optional<QByteArray> data, xcb_atom_t type)>;
    void convertSelection(xcb_atom_t selection, xcb_atom_t target, Converted answer);
    // An atom's name, asked once.
    void atomName(xcb_atom_t atom, std::function<void(const QString &name)> answer);

    void activeWindow(std::function<void(xcb_window_t)> answer);
    void windowPid(xcb_window_t window, std::function<void(std::optional<quint32>)> answer);
    // Exists and is mapped on screen: a closed window may linger in the hints for a while.
    void isViewable(xcb_window_t window, std::function<void(bool)> answer);
    void windowClass(xcb_window_t window, std::function<void(std::optional<WindowClass>)> answer);
    // The server's time now, learnt from the stamp of a change to our own window.
    void serverTime(std::function<void(xcb_timestamp_t)> answer);
    // Asks the window manager to activate window, as a pager would (source 2), with the
    // server's current time so focus-stealing prevention takes it as a fresh request.
    void requestActivation(xcb_window_t window);

private:
    X11Connection() = default;
    void read();
    void nextConversion();

    struct Pending
    {
        unsigned int sequence;
        std::function<void(void *)> answer;
    };

    xcb_connection_t *m_connection = nullptr;
    xcb_screen_t *m_screen = nullptr;
    int m_screenNumber = 0;
    xcb_ewmh_connection_t m_ewmh {};
    xcb_window_t m_ownWindow = XCB_NONE;
    xcb_atom_t m_selectionProperty = XCB_NONE;
    QSocketNotifier *m_notifier = nullptr;
    QList<Pending> m_pending;
    QList<std::function<bool(const xcb_generic_event_t *)>> m_listeners;
    struct Conversion
    {
        xcb_atom_t selection;
        xcb_atom_t target;
        Converted answer;
    };
    QList<Conversion> m_conversions;
    bool m_converting = false;
    xcb_atom_t m_clipboard = XCB_NONE;
    xcb_atom_t m_incr = XCB_NONE;
    xcb_atom_t m_targets = XCB_NONE;
    QHash<xcb_atom_t, QString> m_atomNames;
    bool m_readQueued = false;
};
