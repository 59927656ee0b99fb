#pragma once

#include "Platform.h"
#include "X11Connection.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>

typedef struct _XCBKeySymbols xcb_key_symbols_t;

// Types keys through the XTEST extension, as if on the physical keyboard.
class X11KeySynth : public QObject, public KeySynth
{
    Q_OBJECT
public:
    explicit X11KeySynth(std::shared_ptr<X11Connection> x11, QObject *parent = nullptr);
    ~X11KeySynth() override;

    void post(int keyCode, quint64 flags, std::function<void()> posted) override;

    // Terminal emulators keep Ctrl+C and Ctrl+V for the program inside them.
    static bool isTerminal(const WindowClass &windowClass);

private:
    struct Request
    {
        int keyCode;
        quint64 flags;
        std::function<void()> posted;
    };

    void waitForReleasedKeys();
    void send(const Request &request);
    QList<xcb_keycode_t> heldKeys();
    QList<xcb_keycode_t> modifierKeys();
    xcb_keycode_t keycodeFor(quint32 keysym);
    void fakeKey(xcb_keycode_t keycode, bool press);

    std::shared_ptr<X11Connection> m_x11;
    xcb_key_symbols_t *m_symbols = nullptr;
    QList<Request> m_queue;
    QElapsedTimer m_waiting;
};
