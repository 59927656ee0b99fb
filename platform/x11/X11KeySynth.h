#pragma once

#include "Platform.h"
#include "X11Connection.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>

// Types keys through the XTEST extension, as if on the physical keyboard. What the
// keyboard holds and how it is laid out is asked of the server through the event loop.
class X11KeySynth : public QObject, public KeySynth
{
    Q_OBJECT
public:
    explicit X11KeySynth(std::shared_ptr<X11Connection> x11, QObject *parent = nullptr);

    void post(int keyCode, quint64 flags, std::function<void()> posted) override;

private:
    struct Request
    {
        int keyCode;
        quint64 flags;
        std::function<void()> posted;
    };
    struct Keyboard
    {
        QList<xcb_keycode_t> held;
        QList<xcb_keycode_t> modifiers;
        // The layout: keysymsPerKeycode keysyms for each key from the setup's minimum.
        QList<xcb_keysym_t> keysyms;
        int keysymsPerKeycode = 0;
    };

    void waitForReleasedKeys();
    void readKeyboard(std::function<void(const Keyboard &)> answer);
    void send(const Keyboard &keyboard, const Request &request);
    xcb_keycode_t keycodeFor(const Keyboard &keyboard, xcb_keysym_t keysym) const;
    void fakeKey(xcb_keycode_t keycode, bool press);

    std::shared_ptr<X11Connection> m_x11;
    QList<Request> m_queue;
    QElapsedTimer m_waiting;
};
