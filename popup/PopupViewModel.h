#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <chrono>
#include <functional>
#include <memory>

class PopupHost;
class Rewriter;
class RewriteRequest;

// The state of one rewrite while its popup is open: the captured text, the chosen
// tone, the result as it streams in, and the user's actions on it. It owns its request:
// a new run, or the model's end, stops only that one.
class PopupViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("A popup's model is made by its window controller")

    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY stateChanged)
    // The error is fixed in Settings (a model to pick, a key to enter): the popup offers it.
    Q_PROPERTY(bool offersSettings READ offersSettings NOTIFY stateChanged)
    // The sentence in the result area when there is no result to show: the error, or
    // what to do when there is nothing to rewrite.
    Q_PROPERTY(QString message READ message NOTIFY stateChanged)
    Q_PROPERTY(QString resultText READ resultText NOTIFY resultTextChanged)
    Q_PROPERTY(QString selectedTone READ selectedTone NOTIFY selectedToneChanged)
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

public:
    // Notice: nothing to rewrite (no text, or a text refused); the message says why.
    enum class State { Error, Loading, Streaming, Done, Notice };
    Q_ENUM(State)

    static constexpr std::chrono::milliseconds defaultStallDelay { 5000 };
    static constexpr int previewLength = 280;

    // The host may be null: Replace then only closes the window, Copy does nothing.
    // stallDelay: how long a running reply may stay quiet before the popup says so.
    PopupViewModel(const QString &originalText, Rewriter &rewriter, PopupHost *host,
        std::chrono::milliseconds stallDelay, QObject *parent = nullptr);
    PopupViewModel(
        const QString &originalText, Rewriter &rewriter, PopupHost *host, QObject *parent = nullptr);
    ~PopupViewModel() override;

    static const QStringList &toneNames();
    static QString noTextMessage();

    State state() const { return m_state; }
    QString errorMessage() const { return m_state == State::Error ? m_message : QString(); }
    bool offersSettings() const;
    QString message() const { return m_message; }
    QString resultText() const { return m_resultText; }
    QString selectedTone() const { return m_selectedTone; }
    QString originalText() const { return m_originalText; }
    QString originalPreview() const;
    QStringList tones() const { return toneNames(); }
    bool isStalled() const { return m_stalled; }
    QString note() const;
    bool isBusy() const { return m_state == State::Loading || m_state == State::Streaming; }
    bool canRetry() const;
    bool canCopy() const;
    bool canReplace() const { return canCopy() && !m_replacing; }

    Q_INVOKABLE void run();
    Q_INVOKABLE void selectTone(const QString &tone);
    Q_INVOKABLE void copy();
    Q_INVOKABLE void openSettings();
    // Replaces with the result as it is now, after closeWindow has hidden the popup.
    void replace(std::function<void()> closeWindow);
    // The view's Replace: the popup's window closes on closeRequested.
    Q_INVOKABLE void replace();
    // Nothing will be rewritten here; the popup shows why.
    void showNotice(const QString &message);
    // The text arrived after the popup opened (what the user copied): rewrite it now.
    void takeText(const QString &text);
    // Stops the running request, if any, without a word: the rewrite is over.
    void stop();

Q_SIGNALS:
    void stateChanged();
    void originalTextChanged();
    void resultTextChanged();
    void selectedToneChanged();
    void actionsChanged();
    void closeRequested();
    void noteChanged();
    // Replace has begun writing the result back; the host hears of it until done.
    void replaceStarted();

private:
    void setState(State state, const QString &message = {});
    void appendFragment(const QString &fragment);
    void setStalled(bool stalled);
    void setReplacing(bool replacing);

    QString m_originalText;
    Rewriter &m_rewriter;
    PopupHost *m_host;
    State m_state = State::Loading;
    QString m_message;
    QString m_resultText;
    QString m_selectedTone;
    QString m_replaceNote;
    std::shared_ptr<RewriteRequest> m_request;
    QTimer m_stallTimer;
    bool m_stalled = false;
    bool m_replacing = false; // one Replace at a time: a second would write the text twice
};
