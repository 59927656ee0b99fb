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
    if (setError == AxError::Success) {
        if (const auto range = rangeOfSelection())
            document.replace(range->start, range->end - range->start, text);
        selection = text;
    }
    if (writesHang)
        return;
    answer([done, error = setError] { done(error); });
}

std::optional<TextRange> FakeAccessibility::rangeOfSelection() const
{
    if (gone || !selection || selection->isEmpty())
        return std::nullopt;
    const qsizetype at = document.indexOf(*selection);
    if (at < 0)
        return std::nullopt;
    return TextRange { int(at), int(at + selection->size()) };
}

void FakeAccessibility::selectedRange(const Element &, std::function<void(std::optional<TextRange>)> done)
{
    answer([done, range = rangeOfSelection()] { done(range); });
}

void FakeAccessibility::textIn(
    const Element &, TextRange range, std::function<void(std::optional<QString>)> done)
{
    const std::optional<QString> text
        = gone ? std::nullopt : std::optional<QString>(document.mid(range.start, range.end - range.start));
    answer([done, text] { done(text); });
}

void FakeAccessibility::replaceRange(
    const Element &, TextRange range, const QString &text, std::function<void(int)> done)
{
    written.append(text);
    const int error = gone ? AxError::CannotComplete : setError;
    if (error == AxError::Success)
        document.replace(range.start, range.end - range.start, text);
    if (writesHang)
        return;
    answer([done, error] { done(error); });
}
