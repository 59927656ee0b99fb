#include "FakeKeyboardGrab.h"

bool FakeKeyboardGrab::start(std::function<bool(int keyCode, quint64 flags)> handler)
{
    ++starts;
    if (refuse)
        return false;
    m_handler = std::move(handler);
    return true;
}

void FakeKeyboardGrab::stop()
{
    m_handler = nullptr;
}
