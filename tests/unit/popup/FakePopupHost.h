#pragma once

#include "PopupHost.h"

#include <QElapsedTimer>
#include <QStringList>

// Records what a popup asked of the application, and when (ms since construction).
class FakePopupHost : public PopupHost
{
public:
    bool returnSucceeds = true;
    qint64 returnedAt = -1;
    qint64 replacedAt = -1;
    QStringList replaced;
    QStringList copied;
    QElapsedTimer clock;

    FakePopupHost() { clock.start(); }

    void returnToPreviousApp(std::function<void(bool)> done) override
    {
        returnedAt = clock.elapsed();
        done(returnSucceeds);
    }
    void replaceSelectedText(const QString &text, std::function<void(bool)> done) override
    {
        replacedAt = clock.elapsed();
        replaced.append(text);
        done(true);
    }
    void copyToClipboard(const QString &text) override { copied.append(text); }
    void openSettings() override { ++settingsOpened; }
    int settingsOpened = 0;
};
