#include "FakeAccessibility.h"

bool FakeAccessibility::isTrusted(bool prompt)
{
    trustQueries.append(prompt);
    return trusted;
}

FocusResult FakeAccessibility::focusedElement(const RunningApplication &)
{
    ++focusQueries;
    return focus;
}

int FakeAccessibility::setSelectedText(const Element &, const QString &text)
{
    written.append(text);
    if (setError == AxError::Success)
        selection = text;
    return setError;
}
