#include "FakeAccessibility.h"

#include <QTimer>

bool FakeAccessibility::isTrusted(bool prompt)
{
    trustQueries.append(prompt);
    return trusted;
}

void FakeAccessibility::answer(std::function<void()> reply)
{
    if (silent)
        return;
    if (answerDelayMs < 0)
        reply();
    else
        QTimer::singleShot(answerDelayMs, std::move(reply));
}

void FakeAccessibility::focusedElement(const RunningApplication &, std::function<void(FocusResult)> done)
{
    ++focusQueries;
    answer([done, focus = focus] { done(focus); });
}

void FakeAccessibility::selectedText(const Element &, std::function<void(std::optional<QString>)> done)
{
    answer([done, selection = selection] { done(selection); });
}

void FakeAccessibility::setSelectedText(const Element &, const QString &text, std::function<void(int)> done)
{
    written.append(text);
    if (setError == AxError::Success)
        selection = text;
    if (writesHang)
        return;
    answer([done, error = setError] { done(error); });
}
