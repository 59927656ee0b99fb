#pragma once

#include "Platform.h"

// A desktop that runs `tessary --trigger` once it is bound; error stands for a desktop
// that refuses the new shortcut.
class FakeDesktopShortcut : public DesktopShortcut
{
public:
    bool bound = false;
    bool addable = true;
    QString error;
    QString line;
    int adds = 0;

    bool isBound() const override { return bound; }
    bool canAdd() const override { return addable; }
    void add(std::function<void(const QString &error)> done) override
    {
        ++adds;
        bound = addable && error.isEmpty();
        done(addable ? error : advice());
    }
    QString advice() const override { return QStringLiteral("Bind Ctrl+Alt+H to tessary --trigger."); }
    QString configLine() const override { return line; }
};
