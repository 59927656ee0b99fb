#include "StreamDelegate.h"

#include "Characters.h"
#include "Log.h"
#include "ReplyInterpreter.h"
#include "StreamParser.h"

#include <QLocale>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QStringDecoder>
#include <QThread>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr Log::Literal tag = u"StreamDelegate";
constexpr int cancelledCode = -999;

// QNetworkReply turns an HTTP error status into an error code of its own; that is the
// service answering, and its body decides what the user sees, not a transport failure.
bool isHttpStatusError(QNetworkReply::NetworkError error)
{
    return (error >= QNetworkReply::ContentAccessDenied && error <= QNetworkReply::UnknownContentError)
        || error == QNetworkReply::ProtocolInvalidOperationError
        || (error >= QNetworkReply::InternalServerError && error <= QNetworkReply::UnknownServerError);
}

Failure::Kind transportKind(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
        return Failure::Kind::Unreachable;
    case QNetworkReply::HostNotFoundError:
        return Failure::Kind::HostUnknown;
    case QNetworkReply::TimeoutError:
        return Failure::Kind::TimedOut;
    case QNetworkReply::SslHandshakeFailedError:
        return Failure::Kind::Tls;
    default:
        return Failure::Kind::Network;
    }
}

// One event, one log line: line breaks inside a piece or a fragment are shown escaped.
QString oneLine(QString text)
{
    return text.replace(u'\r', "\\r"_L1).replace(u'\n', "\\n"_L1);
}

} // namespace

// Lives on the request's thread: owns the network access manager and the reply, reads
// the body as it arrives and queues what it finds to the StreamDelegate.
class StreamTransfer : public QObject, private StreamParser::Listener
{
public:
    StreamTransfer(StreamDelegate *delegate, const QNetworkRequest &request, const QByteArray &body,
        StreamDelegate::Reading reading)
        : m_delegate(delegate)
        , m_request(request)
        , m_body(body)
        , m_reading(reading)
        , m_parser(*this)
    {
    }

    ~StreamTransfer() override
    {
        if (m_reply) {
            m_reply->disconnect(this);
            m_reply->abort();
        }
    }

    void start()
    {
        m_network = new QNetworkAccessManager(this);
        m_reply = m_network->post(m_request, m_body);
        connect(m_reply, &QNetworkReply::metaDataChanged, this, &StreamTransfer::logResponseHead);
        connect(m_reply, &QNetworkReply::readyRead, this, &StreamTransfer::read);
        connect(m_reply, &QNetworkReply::finished, this, &StreamTransfer::end);
    }

    void abort()
    {
        m_cancelRequested = true;
        if (m_reply)
            m_reply->abort();
    }

private:
    // The lines of one read go out in one write.
    void log(Log::Literal glyph, Log::Message message) { m_log.add(glyph, tag, message); }
    void log(Log::Literal glyph, Log::Part message) { m_log.add(glyph, tag, std::move(message)); }
    void flushLog() { m_log.flush(); }

    template<typename Delivery> void post(Delivery delivery)
    {
        QMetaObject::invokeMethod(m_delegate, std::move(delivery), Qt::QueuedConnection);
    }

    // One queued call per read rather than per fragment: a fast stream would otherwise
    // flood the main thread's event queue with calls that each wake it.
    void postFound()
    {
        if (m_found.isEmpty())
            return;
        post([delegate = m_delegate, found = std::exchange(m_found, {})] { delegate->deliver(found); });
    }

    void logResponseHead()
    {
        if (m_headLogged)
            return;
        const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid())
            return;
        m_headLogged = true;
        log(u"📡", u"Response received");
        log(u"📡", { u"HTTP Status Code: ", status.toInt() });
        if (status.toInt() == 401)
            log(u"🔐", u"Authentication error detected");
        flushLog();
    }

    void read()
    {
        if (!m_reply->isOpen())
            return; // aborted
        const QByteArray piece = m_reply->readAll();
        if (piece.isEmpty())
            return;
        m_receivedData = true;
        m_bytesReceived += piece.size();
        const QString text = m_decoder.decode(piece);
        log(u"📦", { u"Received chunk: ", Log::Private(oneLine(Characters::upTo(text, 100))), u"..." });
        if (m_tooLongAt == 0) {
            if (m_reading.modelServer)
                m_interpreter.feed(piece, m_interpreted);
            else
                m_parser.feed(piece);
        }
        flushLog();
        postFound();
        // A reply past any sensible length is not read on: what came so far is the result.
        if (m_tooLongAt > 0 && m_reply)
            m_reply->abort();
    }

    void interpreted(const ReplyEvent &event)
    {
        switch (event.kind) {
        case ReplyEvent::Kind::Text:
            token(event.text);
            break;
        case ReplyEvent::Kind::Reasoning:
            log(u"💭", { u"Reasoning received: ", Log::Private(oneLine(event.text)) });
            m_found.append({ StreamDelegate::Found::Kind::Reasoning, event.text });
            break;
        case ReplyEvent::Kind::Error:
            log(u"❌", { u"Model server error: ", Log::Public(event.text) });
            m_found.append({ StreamDelegate::Found::Kind::Error, {}, Failure::service(event.text) });
            break;
        case ReplyEvent::Kind::Done:
            log(u"🏁", u"Stream completed");
            break;
        }
    }

    void end()
    {
        logResponseHead();
        read();
        const QNetworkReply::NetworkError error = m_reply->error();
        const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();

        StreamDelegate::Ending ending;
        if (m_tooLongAt > 0) {
            ending.tooLongAt = m_tooLongAt;
        } else if (error == QNetworkReply::OperationCanceledError && m_cancelRequested) {
            ending.code = cancelledCode;
            ending.description = u"cancelled"_s;
        } else if (error == QNetworkReply::OperationCanceledError) {
            // The transfer timeout aborts the reply just as cancel() does.
            ending.code = QNetworkReply::TimeoutError;
            ending.kind = Failure::Kind::TimedOut;
            ending.description = u"The request timed out."_s;
        } else if (error != QNetworkReply::NoError && !(status >= 400 && isHttpStatusError(error))) {
            ending.code = error;
            ending.kind = transportKind(error);
            ending.description = m_reply->errorString();
        } else if (cutShort()) {
            ending.code = QNetworkReply::RemoteHostClosedError;
            ending.description = u"The connection was closed before the whole reply arrived."_s;
        } else if (m_reading.modelServer) {
            m_interpreter.finish(m_interpreted);
        } else {
            m_parser.finish();
        }
        ending.receivedData = m_receivedData;
        ending.httpStatus = status;
        ending.reasonPhrase = m_reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
        ending.usableBody = m_parser.tokenCount() > 0 || m_parser.reportedError();
        if (m_reading.modelServer) {
            using Interpreted = ReplyInterpreter::Ending;
            const Interpreted interpreted = m_interpreter.ending();
            ending.usableBody
                = interpreted == Interpreted::Answered || interpreted == Interpreted::ReportedError;
            if (interpreted == Interpreted::NoText)
                ending.unanswered = Failure::Kind::NoText;
            else if (interpreted == Interpreted::UnclosedThinking)
                ending.unanswered = Failure::Kind::UnclosedThinking;
        }

        const QString rendered = ending.code == 0
            ? u"nil"_s
            : u"Error Code=%1 \"%2\""_s.arg(ending.code).arg(ending.description);
        log(u"🔚", { u"Task completed - Error: ", Log::Public(rendered) });
        flushLog();
        postFound(); // what finish() found at the end of the body

        m_reply->deleteLater();
        m_reply = nullptr;
        post([delegate = m_delegate, ending] { delegate->deliverEnding(ending); });
    }

    // A reset right after the head can reach QNetworkReply as a clean end; a body
    // shorter than announced says otherwise. (A compressed body's length is not comparable.)
    bool cutShort() const
    {
        const QVariant announced = m_reply->header(QNetworkRequest::ContentLengthHeader);
        return announced.isValid() && !m_reply->hasRawHeader("Content-Encoding")
            && m_bytesReceived < announced.toLongLong();
    }

    void line(QByteArrayView line) override
    {
        log(u"📄", { u"Processing line: ", Log::Private(QString::fromUtf8(line)) });
    }

    void endMarker() override { log(u"🏁", u"Stream completed"); }

    // An event's data may span several lines; its log line stays one.
    void event(QByteArrayView json) override
    {
        log(u"📋", { u"Stream JSON: ", Log::Private(oneLine(QString::fromUtf8(json))) });
    }

    void token(const QString &fragment) override
    {
        if (m_tooLongAt > 0)
            return;
        log(u"📝", { u"Token received: ", Log::Private(oneLine(fragment)) });
        const qsizetype bound = m_reading.maxCharacters;
        if (bound > 0 && m_characters + fragment.size() > bound) {
            qsizetype cut = bound - m_characters;
            if (cut > 0 && fragment.at(cut - 1).isHighSurrogate())
                --cut; // half a character is none
            if (cut > 0)
                m_found.append({ StreamDelegate::Found::Kind::Token, fragment.first(cut) });
            m_tooLongAt = bound;
            return;
        }
        m_characters += fragment.size();
        m_found.append({ StreamDelegate::Found::Kind::Token, fragment });
    }

    void streamedError(const QString &type, const QString &message) override
    {
        log(u"❌", { u"Streaming error - Type: ", Log::Public(type), u", Message: ", Log::Public(message) });
        m_found.append({ StreamDelegate::Found::Kind::Error, {}, Failure::service(message) });
    }

    void nonStreamedError(const QString &type, const QString &message) override
    {
        log(u"❌",
            { u"Non-streaming error - Type: ", Log::Public(type), u", Message: ", Log::Public(message) });
        // Only the whole-reply form gets the friendlier text: it is how the service
        // answers a request it refuses outright.
        Failure failure = Failure::service(message);
        if (type == "invalid_request_error"_L1 && message.contains("Invalid API key"_L1)) {
            failure.message = u"Invalid API key. Please check your token in Settings."_s;
            failure.settingsWording = u"Invalid API key. Please check your token."_s;
            failure.fix = Failure::Fix::Settings;
        }
        m_found.append({ StreamDelegate::Found::Kind::Error, {}, failure });
    }

    StreamDelegate *m_delegate; // only ever the context of queued calls to the main thread
    QNetworkRequest m_request;
    QByteArray m_body;
    StreamDelegate::Reading m_reading;
    ReplyInterpreter m_interpreter;
    const ReplyInterpreter::Handler m_interpreted = [this](const ReplyEvent &event) { interpreted(event); };
    qsizetype m_characters = 0; // of the fragments handed on
    qsizetype m_tooLongAt = 0;
    QNetworkAccessManager *m_network = nullptr;
    QNetworkReply *m_reply = nullptr;
    StreamParser m_parser;
    QStringDecoder m_decoder { QStringDecoder::Utf8 };
    bool m_receivedData = false;
    qint64 m_bytesReceived = 0;
    bool m_headLogged = false;
    bool m_cancelRequested = false;
    Log::Lines m_log;
    QList<StreamDelegate::Found> m_found; // not yet handed to the main thread
};

StreamDelegate::StreamDelegate(const QNetworkRequest &request, const QByteArray &body,
    RewriteCallbacks callbacks, Reading reading, QObject *parent)
    : QObject(parent)
    , m_callbacks(std::move(callbacks))
    , m_thread(new QThread(this))
    , m_transfer(new StreamTransfer(this, request, body, reading))
{
    m_thread->setObjectName(u"StreamDelegate"_s); // as debuggers and top show it
    m_transfer->moveToThread(m_thread);
    connect(m_thread, &QThread::started, m_transfer, &StreamTransfer::start);
    // The transfer is deleted on its own thread as the thread ends.
    connect(m_thread, &QThread::finished, m_transfer, &QObject::deleteLater);
    connect(m_thread, &QThread::finished, this, &StreamDelegate::finished);
    m_thread->start();
}

StreamDelegate::~StreamDelegate()
{
    m_thread->quit();
    m_thread->wait();
}

void StreamDelegate::cancel()
{
    if (m_cancelRequested || m_ended)
        return;
    m_cancelRequested = true;
    QMetaObject::invokeMethod(
        this, [this] { m_cutOff = true; }, Qt::QueuedConnection);
    QMetaObject::invokeMethod(m_transfer, &StreamTransfer::abort, Qt::QueuedConnection);
}

void StreamDelegate::deliver(const QList<Found> &found)
{
    // A callback may start a new rewrite, and so cancel this one, or end its owner.
    const QPointer<StreamDelegate> alive(this);
    for (const Found &item : found) {
        if (!alive || m_cutOff)
            return;
        switch (item.kind) {
        case Found::Kind::Token:
            if (m_callbacks.onToken)
                m_callbacks.onToken(item.text);
            break;
        case Found::Kind::Reasoning:
            if (m_callbacks.onReasoning)
                m_callbacks.onReasoning(item.text);
            break;
        case Found::Kind::Error:
            m_hasHandledError = true;
            if (m_callbacks.onError)
                m_callbacks.onError(item.failure);
            break;
        }
    }
}

void StreamDelegate::deliverEnding(const Ending &ending)
{
    m_ended = true;
    m_thread->quit();
    const auto fail = [this](Failure::Kind kind, const QString &message, int code = 0) {
        Failure failure = Failure::of(kind, message);
        failure.code = code;
        if (m_callbacks.onError)
            m_callbacks.onError(failure);
    };

    if (m_cutOff || ending.code == cancelledCode) {
        Log::write(u"🔄", tag, u"Request was cancelled");
    } else if (ending.code != 0) {
        Log::write(u"❌", tag, { u"Network error: ", Log::Public(ending.description) });
        fail(ending.kind, ending.description, ending.code);
    } else if (m_hasHandledError) {
        Log::write(u"❌", tag, u"Stream completed with error (already handled)");
    } else if (ending.httpStatus >= 400 && !ending.usableBody) {
        // An empty "done" popup would hide that the service refused the request.
        const QString status = u"%1 %2"_s.arg(ending.httpStatus).arg(ending.reasonPhrase).trimmed();
        Log::write(u"❌", tag, { u"HTTP error without a usable body: ", Log::Public(status) });
        fail(Failure::Kind::HttpStatus, u"The service answered with HTTP %1."_s.arg(status),
            ending.httpStatus);
    } else if (ending.tooLongAt > 0) {
        Log::write(u"❌", tag, { u"Reply stopped at ", ending.tooLongAt, u" characters" });
        fail(Failure::Kind::TooLong,
            u"The reply passed %1 characters, far more than a rewrite of this text needs, so Tessary stopped "
            "it. The text so far is kept."_s.arg(QLocale().toString(ending.tooLongAt)));
    } else if (ending.receivedData && ending.unanswered) {
        const bool thinking = *ending.unanswered == Failure::Kind::UnclosedThinking;
        if (thinking)
            Log::write(u"❌", tag, u"Reply ended inside the model's thinking");
        else
            Log::write(u"❌", tag, u"Reply had no text");
        fail(*ending.unanswered,
            thinking ? ReplyInterpreter::unclosedThinkingMessage() : ReplyInterpreter::noTextMessage());
    } else if (ending.receivedData) {
        Log::write(u"✅", tag, u"Stream completed successfully");
        if (m_callbacks.onComplete)
            m_callbacks.onComplete();
    } else {
        Log::write(u"❌", tag, u"No data received");
        fail(Failure::Kind::NoResponse, u"No response received from server"_s);
    }
}
