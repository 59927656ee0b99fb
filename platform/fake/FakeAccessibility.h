#pragma once

#include "Platform.h"

#include <QStringList>

// Scripted focused element and selection; records what was written.
class FakeAccessibility : public Accessibility
{
public:
    bool trusted = true;
    FocusResult focus { AxError::Success, Element { QStringLiteral("app"), QStringLiteral("/focused") } };
    std::optional<QString> selection;
    int setError = AxError::Success;

    int focusQueries = 0;
    QStringList written;

    bool isTrusted(bool) override { return trusted; }
    FocusResult focusedElement(const RunningApplication &) override;
    std::optional<QString> selectedText(const Element &) override { return selection; }
    int setSelectedText(const Element &element, const QString &text) override;
};
