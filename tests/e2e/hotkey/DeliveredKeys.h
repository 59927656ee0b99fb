#pragma once

#include <QList>
#include <QObject>

#include <memory>
#include <xcb/xcb.h>

class QSocketNotifier;

// The key presses the X server delivers to an application, seen from a connection of
// our own through XInput 2, the way GTK takes its keys. Several clients may select XI2
// key events on one window and each gets its copy, while a key taken by a passive grab
// goes to the grabbing client alone: so this sees exactly the keys the application is
// sent. Raw key events on the root window tell when a key has been processed at all;
// they arrive whoever has the keyboard, even while a menu of the application grabs it.
class DeliveredKeys : public QObject
{
public:
    DeliveredKeys();
    ~DeliveredKeys() override;

    // false when the server has no XInput 2
    bool available() const { return m_notifier != nullptr; }

    // Records from now on the presses delivered to topLevel and the windows inside it:
    // GTK keeps the keyboard focus on a child window of its own, and the window manager
    // moves it to the top-level window and back when it activates the application.
    void watch(xcb_window_t topLevel);
    // Whether the keyboard focus is on one of the watched windows.
    bool hasFocus();
    // Whether a grab holds the keyboard away from the watched windows, such as an open
    // menu of the application, or a grab while its shortcut is down.
    bool keyboardGrabbed() const { return m_grabbed; }
    // Presses the marker key (Shift) and waits until the server has processed it: every
    // key sent before has then been delivered wherever it went.
    bool settle();

    QList<int> presses; // keycodes delivered to the watched windows, auto-repeats included

private:
    void select(xcb_window_t window, quint16 device, quint32 events);
    void read();

    xcb_connection_t *m_connection = nullptr;
    std::unique_ptr<QSocketNotifier> m_notifier;
    quint8 m_opcode = 0;
    xcb_window_t m_root = XCB_NONE;
    QList<xcb_window_t> m_watched;
    QList<int> m_processed; // keycodes of raw presses since the last settle()
    bool m_grabbed = false;
};
