#pragma once

#include "Platform.h"

#include <QList>
#include <QStringList>

// Scripted switch, focused element and selection; records what was asked and written.
// Answers at once, after answerDelayMs on a timer, or (silent) never, like an
// application that hangs.
class FakeAccessibility : public Accessibility
{
public:
    AccessibilityStatus switchState { true, true };
    FocusResult focus { AxError::Success, Element { QStringLiteral("app"), QStringLiteral("/focused") } };
    std::optional<QString> selection;
    // The element's whole text, where a test reads and writes by offsets; the selection is
    // where it first holds the selected text.
    QString document;
    bool gone = false; // the element has left the bus: reads get nothing, writes fail
    int setError = AxError::Success;
    bool silent = false;
    bool writesHang = false; // reads are answered, writes never
    int answerDelayMs = -1; // < 0: at once

    int statusQueries = 0;
    int focusQueries = 0;
    QStringList written;

    void status(std::function<void(AccessibilityStatus)> done) override;
    void turnOn(std::function<void(bool)> done) override;
    void focusedElement(const RunningApplication &, std::function<void(FocusResult)> done) override;
    void selectedText(const Element &, std::function<void(std::optional<QString>)> done) override;
    void setSelectedText(const Element &element, const QString &text, std::function<void(int)> done) override;
    void selectedRange(const Element &element, std::function<void(std::optional<TextRange>)> done) override;
    void textIn(
        const Element &element, TextRange range, std::function<void(std::optional<QString>)> done) override;
    void replaceRange(
        const Element &element, TextRange range, const QString &text, std::function<void(int)> done) override;

private:
    std::optional<TextRange> rangeOfSelection() const;
    void answer(std::function<void()> reply);
};
