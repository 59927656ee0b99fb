#pragma once

#include "RewriteCallbacks.h"

#include <QList>
#include <QNetworkRequest>
#include <QObject>

#include <optional>

class QThread;
class StreamTransfer;

// How a reply is read: as the Tessary service sends it, or as any model server may.
// A rewrite longer than `maxCharacters` (0: no bound) is stopped there.
struct StreamReading
{
    bool modelServer = false;
    qsizetype maxCharacters = 0;
};

// One rewrite request, from sending to its outcome. The transfer and the reading of
// the reply run on a thread of their own; every callback is queued to this object's
// (the main) thread in stream order, the outcome last and at most once.
class StreamDelegate : public QObject
{
    Q_OBJECT

public:
    // What the transfer thread found when the transfer ended.
    struct Ending
    {
        int code = 0; // 0: clean end; -999: cancelled; else a QNetworkReply::NetworkError
        QString description;
        bool receivedData = false;
        int httpStatus = 0;
        QString reasonPhrase;
        bool usableBody = false; // fragments or an error object came out of the body
        Failure::Kind kind = Failure::Kind::Network; // of a transport failure
        // A model server's reply that ended without an answer: NoText or UnclosedThinking.
        std::optional<Failure::Kind> unanswered;
        qsizetype tooLongAt = 0; // the reply was stopped after this many characters
    };

    using Reading = StreamReading;

    // Starts the transfer at once.
    StreamDelegate(const QNetworkRequest &request, const QByteArray &body, RewriteCallbacks callbacks,
        Reading reading = {}, QObject *parent = nullptr);
    // Stops the transfer thread if it still runs; no callback is called from then on.
    ~StreamDelegate() override;

    // Aborts the transfer. What was queued before still arrives; nothing found later
    // does, and there is no outcome.
    void cancel();

Q_SIGNALS:
    // The outcome (or the cancellation) has been handled and the thread has ended.
    void finished();

private:
    friend class StreamTransfer;
    // What one network read found, in stream order: fragments, and errors the service
    // reported. All of a read crosses to the main thread in one queued call.
    struct Found
    {
        enum class Kind { Token, Reasoning, Error };
        Kind kind;
        QString text;
        Failure failure {};
    };
    void deliver(const QList<Found> &found);
    void deliverEnding(const Ending &ending);

    RewriteCallbacks m_callbacks;
    bool m_hasHandledError = false;
    bool m_cutOff = false; // set by a marker queued behind everything handed over before cancel()
    bool m_cancelRequested = false;
    bool m_ended = false; // after this the transfer may be gone; cancel() must not reach it
    QThread *m_thread;
    StreamTransfer *m_transfer;
};
