#pragma once

#include "Platform.h"

// The shortcut as the desktop would grant it; refuse stands for another program that
// holds it.
class FakeKeyboardGrab : public KeyboardGrab
{
public:
    bool refuse = false;
    int starts = 0; // calls of start(), granted or not

    QStringList shortcuts; // the further ones, as last set

    bool start(std::function<bool(int keyCode, quint64 flags)> handler) override;
    void stop() override;
    bool setShortcuts(const QStringList &sequences, std::function<void(int index)> activated) override
    {
        shortcuts = sequences;
        m_activated = std::move(activated);
        return true;
    }
    // A press of the further shortcut at index.
    void pressShortcut(int index)
    {
        if (m_activated)
            m_activated(index);
    }
    bool running() const { return m_handler && !refuse; }
    // A key press of the grabbed combination: whether the handler used it.
    bool press(int keyCode, quint64 flags) { return running() && m_handler(keyCode, flags); }

private:
    std::function<bool(int, quint64)> m_handler;
    std::function<void(int)> m_activated;
};
