#include "FakeAccessibility.h"

#include <QTimer>

void FakeAccessibility::status(std::function<void(AccessibilityStatus)> done)
{
    ++statusQueries;
    answer([this, done] { done(switchState); });
}

void FakeAccessibility::turnOn(std::function<void(bool)> done)
{
    if (switchState.switchable)
        switchState.on = true;
    answer([this, done] { done(switchState.on); });
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
