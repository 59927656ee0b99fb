#pragma once

#include <memory>

class QQmlEngine;

// The one QML engine of the program's windows (popups, settings, onboarding), made when
// the first of them is: a tray program that is never opened loads no QML at all.
class QmlEngine
{
public:
    QmlEngine();
    ~QmlEngine();

    // Made at the first call, with our QML modules importable.
    QQmlEngine &get();
    // Makes an engine find our QML modules (for one a test or tool makes of its own).
    static void prepare(QQmlEngine &engine);

private:
    std::unique_ptr<QQmlEngine> m_engine;
};
