#include "PopupViewModel.h"

#include "Characters.h"
#include "RewriteSession.h"
#include "ScriptCheck.h"

using namespace Qt::StringLiterals;
using SessionState = RewriteSession::State;

PopupViewModel::PopupViewModel(RewriteSession *session, QObject *parent)
    : QObject(parent)
    , m_session(session)
{
    if (!m_session)
        return;
    connect(m_session, &RewriteSession::stateChanged, this, [this] {
        Q_EMIT stateChanged();
        Q_EMIT actionsChanged();
    });
    connect(m_session, &RewriteSession::resultTextChanged, this, &PopupViewModel::resultChanged);
    connect(m_session, &RewriteSession::originalTextChanged, this, &PopupViewModel::originalTextChanged);
    connect(m_session, &RewriteSession::selectedToneChanged, this, &PopupViewModel::selectedToneChanged);
    connect(m_session, &RewriteSession::instructionChanged, this, &PopupViewModel::instructionChanged);
    connect(m_session, &RewriteSession::savedInstructionsChanged, this,
        &PopupViewModel::savedInstructionsChanged);
    connect(m_session, &RewriteSession::showChangesChanged, this, &PopupViewModel::showChangesChanged);
    connect(m_session, &RewriteSession::stalledChanged, this, &PopupViewModel::actionsChanged);
    connect(m_session, &RewriteSession::noteChanged, this, &PopupViewModel::noteChanged);
    connect(m_session, &RewriteSession::reasoningChanged, this, &PopupViewModel::reasoningChanged);
    connect(m_session, &RewriteSession::closeRequested, this, &PopupViewModel::closeRequested);
}

PopupViewModel::~PopupViewModel() = default;

void PopupViewModel::resultChanged()
{
    Q_EMIT resultTextChanged();
    // The footer depends on whether there is a result, not on each fragment of it.
    const bool hasResult = !m_session->resultText().isEmpty();
    if (hasResult != m_hadResult) {
        m_hadResult = hasResult;
        Q_EMIT actionsChanged();
    }
}

PopupViewModel::State PopupViewModel::state() const
{
    if (!m_session)
        return State::Loading;
    switch (m_session->state()) {
    case SessionState::Capturing:
        return State::Loading;
    case SessionState::Refused:
        return State::Notice;
    case SessionState::Rewriting:
        return m_session->hasReply() ? State::Streaming : State::Loading;
    case SessionState::Failed:
        return State::Error;
    case SessionState::Done:
    case SessionState::Replacing:
    case SessionState::Replaced:
        break;
    }
    return State::Done;
}

QString PopupViewModel::errorMessage() const
{
    return state() == State::Error ? m_session->message() : QString();
}

bool PopupViewModel::offersSettings() const
{
    return state() == State::Error && m_session->failure().fix == Failure::Fix::Settings;
}

QStringList PopupViewModel::commands() const
{
    return state() == State::Error ? m_session->failure().commands : QStringList();
}

bool PopupViewModel::isThinking() const
{
    return m_session && m_session->isThinking();
}

QString PopupViewModel::reasoningText() const
{
    return m_session ? m_session->reasoningText() : QString();
}

QString PopupViewModel::languageNote() const
{
    if (state() != State::Done || !ScriptCheck::changedScript(originalText(), resultText()))
        return {};
    return tr("The rewrite is in another language than the original.");
}

QString PopupViewModel::message() const
{
    return m_session ? m_session->message() : QString();
}

QString PopupViewModel::resultText() const
{
    return m_session ? m_session->resultText() : QString();
}

QString PopupViewModel::selectedTone() const
{
    return m_session ? m_session->selectedTone() : RewriteSession::toneNames().first();
}

QString PopupViewModel::instruction() const
{
    return m_session ? m_session->instruction() : QString();
}

QStringList PopupViewModel::savedInstructions() const
{
    return m_session ? m_session->savedInstructions() : QStringList();
}

bool PopupViewModel::showChanges() const
{
    return m_session && m_session->showChanges();
}

QString PopupViewModel::originalText() const
{
    return m_session ? m_session->originalText() : QString();
}

QString PopupViewModel::originalPreview() const
{
    const QString original = originalText();
    if (original.size() <= previewLength)
        return original;
    return Characters::upTo(original, previewLength) + u"…"_s;
}

QStringList PopupViewModel::tones() const
{
    return RewriteSession::toneNames();
}

bool PopupViewModel::isStalled() const
{
    return m_session && m_session->isStalled();
}

QString PopupViewModel::note() const
{
    return m_session ? m_session->note() : QString();
}

bool PopupViewModel::canRetry() const
{
    // A quiet stream can be given up on at once, without waiting for its timeout.
    return !originalText().isEmpty() && state() != State::Notice && (!isBusy() || isStalled());
}

bool PopupViewModel::canCopy() const
{
    // After an error the partial text is not shown, so it is not offered either; a reply
    // stopped for its length keeps what it had.
    const bool kept = state() == State::Error && m_session->failure().kind == Failure::Kind::TooLong;
    return (state() == State::Done || kept) && !resultText().isEmpty();
}

bool PopupViewModel::canReplace() const
{
    // Once asked, Replace is on its way: a second would write the text twice.
    return canCopy() && m_session->state() == SessionState::Done;
}

QString PopupViewModel::replaceLabel() const
{
    return m_session && m_session->replaceCopies() ? tr("Copy") : tr("Replace");
}

void PopupViewModel::run()
{
    if (m_session)
        m_session->retry();
}

void PopupViewModel::selectTone(const QString &tone)
{
    if (m_session)
        m_session->selectTone(tone);
}

void PopupViewModel::useInstruction(const QString &instruction)
{
    if (m_session)
        m_session->useInstruction(instruction);
}

void PopupViewModel::setShowChanges(bool show)
{
    if (m_session)
        m_session->setShowChanges(show);
}

void PopupViewModel::copy()
{
    if (m_session)
        m_session->copy();
}

void PopupViewModel::openSettings()
{
    if (m_session)
        m_session->openSettings();
}

void PopupViewModel::replace()
{
    if (m_session)
        m_session->replace();
}
