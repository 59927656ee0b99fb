#include "MakePlatform.h"

#include "x11/KeyboardGrab.h"

#include <QGuiApplication>

using namespace Qt::StringLiterals;

Platform makePlatform()
{
    Platform platform;
    if (QGuiApplication::platformName() == u"xcb"_s)
        platform.keyboardGrab = std::make_unique<X11KeyboardGrab>();
    return platform;
}
