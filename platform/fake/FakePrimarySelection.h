#pragma once

#include "Platform.h"

#include <QStringList>

// The PRIMARY selection as a terminal would hold it: owner is the window that selected
// text last; any other window asking gets nothing.
class FakePrimarySelection : public PrimarySelection
{
public:
    std::optional<QString> selection;
    quint32 owner = 0;
    int reads = 0;
    QStringList taken; // every text we put there, in order

    void text(const RunningApplication &app, std::function<void(std::optional<QString>)> done) override
    {
        ++reads;
        done(app.window == owner ? selection : std::nullopt);
    }
    void setText(const QString &text) override
    {
        taken.append(text);
        selection = text;
        owner = 0; // ours now: no other window holds it
    }
};
