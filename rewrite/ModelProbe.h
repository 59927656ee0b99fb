#pragma once

#include <QList>
#include <QObject>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <functional>

class QNetworkAccessManager;

// What a server said when asked for its models. `detail` is for diagnostics only: it
// may carry the server's own words, never the key.
struct ModelList
{
    enum class Outcome {
        Listed, // the server answered with a model list (possibly empty)
        Unreachable, // nothing listens there, or the host is unknown
        TimedOut,
        TlsError,
        Unauthorized, // 401 or 403: the key is missing or wrong
        NotFound, // something answers, but not with a model list
        HttpError, // any other HTTP error status
        InvalidUrl,
    };

    Outcome outcome = Outcome::Unreachable;
    QUrl base; // the OpenAI-compatible base that was asked, e.g. http://127.0.0.1:11434/v1
    QString serverName; // "Ollama", "llama.cpp", ...; empty when not known
    QStringList models;
    int httpStatus = 0;
    QString detail;
    qint64 latencyMs = 0; // from the request to the answer

    bool listed() const { return outcome == Outcome::Listed; }
};

// Asks the OpenAI-compatible server at `base` for its models: GET <base>/models, with
// the key as a bearer token when there is one. Servers that only have Ollama's own list
// (GET <host>/api/tags) are asked for that next. `done` is called once, in `context`'s
// thread, by the deadline at the latest; never when `context` has gone.
void listModels(QNetworkAccessManager &network, const QUrl &base, const QString &key,
    std::chrono::milliseconds deadline, QObject *context, std::function<void(const ModelList &)> done);

// Looks for model servers on this machine: every known port of 127.0.0.1 is asked for
// its models at the same time; finished() comes when all have answered or their
// deadline has passed.
class ModelProbe : public QObject
{
    Q_OBJECT

public:
    struct Candidate
    {
        quint16 port;
        QString serverName;
    };

    // Ollama, llama.cpp's server, LM Studio, vLLM on their default ports.
    static QList<Candidate> knownServers();
    // A list of ports ("11434,8080") in place of the known ones, for servers started on
    // ports of the user's choosing; the known list when `ports` is empty or unusable.
    static QList<Candidate> candidatesFrom(const QString &ports);
    // candidatesFrom() of TESSARY_LOCAL_MODEL_PORTS.
    static QList<Candidate> candidatesFromEnvironment();

    explicit ModelProbe(QList<Candidate> candidates,
        std::chrono::milliseconds deadline = std::chrono::milliseconds(1500), QObject *parent = nullptr);
    ~ModelProbe() override;

    // Starts a new search; one that still runs is forgotten.
    void start();
    bool isRunning() const { return m_pending > 0; }
    // The servers that listed their models, in the order of the candidates.
    QList<ModelList> found() const;

Q_SIGNALS:
    void finished();

private:
    QList<Candidate> m_candidates;
    std::chrono::milliseconds m_deadline;
    QNetworkAccessManager *m_network;
    QList<ModelList> m_answers; // one per candidate
    int m_pending = 0;
    int m_round = 0;
};
