#pragma once

#include "PopupHost.h"

#include <QStringList>

// Records what a popup asked of the application, in order: "return", "replace <text>",
// "copy <text>", "settings".
class FakePopupHost : public PopupHost
{
public:
    bool returnSucceeds = true;
    QStringList calls;

    void returnToPreviousApp(std::function<void(bool)> done) override
    {
        calls.append(QStringLiteral("return"));
        done(returnSucceeds);
    }
    void replaceSelectedText(const QString &text, std::function<void(bool)> done) override
    {
        calls.append(QStringLiteral("replace ") + text);
        done(true);
    }
    void copyToClipboard(const QString &text) override { calls.append(QStringLiteral("copy ") + text); }
    void openSettings() override { calls.append(QStringLiteral("settings")); }
};
