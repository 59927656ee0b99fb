#pragma once

#include "Platform.h"

#include <QList>
#include <QStringList>

// Scripted trust, focused element and selection; records what was asked and written.
class FakeAccessibility : public Accessibility
{
public:
    bool trusted = true;
    FocusResult focus { AxError::Success, Element { QStringLiteral("app"), QStringLiteral("/focused") } };
    std::optional<QString> selection;
    int setError = AxError::Success;

    QList<bool> trustQueries; // the prompt argument of every isTrusted call
    int focusQueries = 0;
    QStringList written;

    bool isTrusted(bool prompt) override;
    FocusResult focusedElement(const RunningApplication &) override;
    std::optional<QString> selectedText(const Element &) override { return selection; }
    int setSelectedText(const Element &element, const QString &text) override;
};
