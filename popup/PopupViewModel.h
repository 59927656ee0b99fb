#pragma once

#include "RewriteSession.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

// What the popup shows of its rewrite session, read-only, and what its controls ask of
// it: every invokable is one call of the session. A view model without a session is a
// stand-in that shows an empty popup and does nothing.
class PopupViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("A popup's model is made by its window controller")

    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY stateChanged)
    // The error is fixed in Settings (a model to pick, a key to enter): the popup offers it.
    Q_PROPERTY(bool offersSettings READ offersSettings NOTIFY stateChanged)
    // Commands that may fix the error ("ollama serve"), shown as copyable code beside it.
    Q_PROPERTY(QStringList commands READ commands NOTIFY stateChanged)
    // A reasoning model is thinking before it answers; its thinking so far, never the result.
    Q_PROPERTY(bool thinking READ isThinking NOTIFY reasoningChanged)
    Q_PROPERTY(QString reasoningText READ reasoningText NOTIFY reasoningChanged)
    // The result came back in another writing system than the original; shown beside Retry.
    Q_PROPERTY(QString languageNote READ languageNote NOTIFY stateChanged)
    // The sentence in the result area when there is no result to show: the error, or
    // what to do when there is nothing to rewrite.
    Q_PROPERTY(QString message READ message NOTIFY stateChanged)
    Q_PROPERTY(QString resultText READ resultText NOTIFY resultTextChanged)
    Q_PROPERTY(QString selectedTone READ selectedTone NOTIFY selectedToneChanged)
    // The user's own words in effect instead of the tone; empty while the tone is.
    Q_PROPERTY(QString instruction READ instruction NOTIFY instructionChanged)
    Q_PROPERTY(QStringList savedInstructions READ savedInstructions NOTIFY savedInstructionsChanged)
    // The result shows what it changed; the next popup starts as this one was left.
    Q_PROPERTY(bool showChanges READ showChanges NOTIFY showChangesChanged)
    Q_PROPERTY(QString originalText READ originalText NOTIFY originalTextChanged)
    // The start of the captured text: all a view shows, or names for a screen reader.
    Q_PROPERTY(QString originalPreview READ originalPreview NOTIFY originalTextChanged)
    Q_PROPERTY(QStringList tones READ tones CONSTANT)
    // No fragment for a while although the reply is not over.
    Q_PROPERTY(bool stalled READ isStalled NOTIFY actionsChanged)
    // One line under the result: that the reply has gone quiet, or why Replace copied.
    Q_PROPERTY(QString note READ note NOTIFY noteChanged)
    // What the footer may do in the current state.
    Q_PROPERTY(bool busy READ isBusy NOTIFY stateChanged)
    Q_PROPERTY(bool canRetry READ canRetry NOTIFY actionsChanged)
    Q_PROPERTY(bool canCopy READ canCopy NOTIFY actionsChanged)
    Q_PROPERTY(bool canReplace READ canReplace NOTIFY actionsChanged)
    // "Replace", or "Copy" where Replace can only copy (a terminal).
    Q_PROPERTY(QString replaceLabel READ replaceLabel NOTIFY originalTextChanged)

public:
    // Notice: nothing to rewrite (no text, or a text refused); the message says why.
    enum class State { Error, Loading, Streaming, Done, Notice };
    Q_ENUM(State)

    static constexpr qsizetype previewLength = RewriteSession::previewLength;

    explicit PopupViewModel(RewriteSession *session, QObject *parent = nullptr);
    ~PopupViewModel() override;

    State state() const;
    QString errorMessage() const;
    bool offersSettings() const;
    QStringList commands() const;
    bool isThinking() const;
    QString reasoningText() const;
    QString languageNote() const;
    QString message() const;
    QString resultText() const;
    QString selectedTone() const;
    QString instruction() const;
    QStringList savedInstructions() const;
    bool showChanges() const;
    QString originalText() const;
    QString originalPreview() const;
    QStringList tones() const;
    bool isStalled() const;
    QString note() const;
    bool isBusy() const { return state() == State::Loading || state() == State::Streaming; }
    bool canRetry() const;
    bool canCopy() const;
    bool canReplace() const;
    QString replaceLabel() const;

    // Retry: a new request in the tone chosen last.
    Q_INVOKABLE void run();
    Q_INVOKABLE void selectTone(const QString &tone);
    Q_INVOKABLE void useInstruction(const QString &instruction);
    Q_INVOKABLE void setShowChanges(bool show);
    Q_INVOKABLE void copy();
    Q_INVOKABLE void openSettings();
    // The popup closes on closeRequested, then the result is written back.
    Q_INVOKABLE void replace();

Q_SIGNALS:
    void stateChanged();
    void originalTextChanged();
    void resultTextChanged();
    void selectedToneChanged();
    void instructionChanged();
    void savedInstructionsChanged();
    void showChangesChanged();
    void actionsChanged();
    void closeRequested();
    void noteChanged();
    void reasoningChanged();

private:
    void resultChanged();

    RewriteSession *m_session;
    bool m_hadResult = false;
};
