#pragma once

#include "AccessibilityHelper.h"
#include "FakeAccessibility.h"
#include "FakeKeySynth.h"
#include "FakePasteboard.h"
#include "FakePrimarySelection.h"
#include "FakeRewriter.h"
#include "FakeWorkspace.h"
#include "RewriteSession.h"

#include <chrono>
#include <memory>

// A desktop of fakes around real capture and replacement, and the service played by a
// FakeRewriter: what a rewrite session needs, for tests of the session and of its views.
struct SessionDesk
{
    static inline const RunningApplication editor { 42, QStringLiteral("Mousepad"), 7,
        { QStringLiteral("mousepad"), QStringLiteral("Mousepad") } };
    static inline const RunningApplication terminal { 43, QStringLiteral("xterm"), 8,
        { QStringLiteral("xterm"), QStringLiteral("XTerm") } };

    FakeWorkspace workspace;
    FakeAccessibility accessibility;
    FakeKeySynth keys;
    FakePasteboard pasteboard;
    FakePrimarySelection primary;
    AccessibilityHelper textAccess { workspace, accessibility, keys, pasteboard, &primary,
        TextAccessTimings { .clipboardPolls = 2,
            .pollPause = std::chrono::milliseconds(5),
            .pasteDelay = std::chrono::milliseconds(5),
            .restoreDelay = std::chrono::milliseconds(5),
            .answerDeadline = std::chrono::milliseconds(200),
            .writeDeadline = std::chrono::milliseconds(200) } };
    FakeRewriter rewriter;
    StorageManager *settings = nullptr; // none: the sessions remember nothing

    SessionDesk() { workspace.frontmost = editor; }

    RewriteSession::Services services() { return { textAccess, &workspace, pasteboard, rewriter, settings }; }

    // A session that has captured text selected in the editor over the accessibility bus
    // (no text: nothing was selected).
    std::unique_ptr<RewriteSession> session(const QString &text, RewriteSession::Timings timings = {})
    {
        auto created = std::make_unique<RewriteSession>(services(), timings);
        accessibility.selection = text;
        if (text.isEmpty()) {
            created->takeCapture({});
            return created;
        }
        created->takeCapture(
            { text, { CaptureTarget::Method::Accessibility, editor, accessibility.focus.element, text } });
        return created;
    }

    QString clipboardText() const
    {
        return QString::fromUtf8(pasteboard.contents().value(QStringLiteral("text/plain")));
    }
};
