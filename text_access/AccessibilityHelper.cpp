#include "AccessibilityHelper.h"

AccessibilityHelper::AccessibilityHelper(Workspace &workspace, Accessibility &accessibility,
    KeySynth &keySynth, Pasteboard &pasteboard, QObject *parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_accessibility(accessibility)
    , m_keySynth(keySynth)
    , m_pasteboard(pasteboard)
{
}

AccessibilityHelper::AccessibilityHelper(Platform &platform, QObject *parent)
    : AccessibilityHelper(
        *platform.workspace, *platform.accessibility, *platform.keySynth, *platform.pasteboard, parent)
{
}

AccessibilityHelper::~AccessibilityHelper() = default;

void AccessibilityHelper::captureSelectedText(CaptureCallback done)
{
    if (done)
        done(std::nullopt);
}

bool AccessibilityHelper::replaceSelectedText(const QString &)
{
    return false;
}

std::optional<QString> AccessibilityHelper::selectedTextViaAX()
{
    return std::nullopt;
}

void AccessibilityHelper::selectedTextViaClipboard() { }
void AccessibilityHelper::pollClipboard(int) { }
void AccessibilityHelper::finishCapture(const std::optional<QString> &) { }
void AccessibilityHelper::paste(int) { }
void AccessibilityHelper::restoreAfterPaste(int) { }
