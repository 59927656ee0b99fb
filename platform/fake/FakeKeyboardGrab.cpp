#include "FakeKeyboardGrab.h"

bool FakeKeyboardGrab::start(std::function<bool(int keyCode, quint64 flags)> handler)
{
    ++starts;
    m_handler = std::move(handler);
    return !refuse;
}

void FakeKeyboardGrab::stop()
{
    m_handler = nullptr;
}
