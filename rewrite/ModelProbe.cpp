#include "ModelProbe.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QProcessEnvironment>
#include <QTimer>

#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// A model list is small; a reply larger than this is not one.
constexpr qint64 maxListBytes = 4 * 1024 * 1024;

struct Answer
{
    int status = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QString errorString;
    bool timedOut = false;
    QByteArray body;
};

// OpenAI's list ({"data":[{"id":...}]}), which some servers send as {"models":[{"name":...}]}
// too; Ollama's own list is the latter. A server with no model yet may send null.
std::optional<QStringList> modelNames(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    const bool openAiList = object.contains("data"_L1)
        && (object.value("data"_L1).isArray()
            || (object.value("data"_L1).isNull() && object.value("object"_L1) == "list"_L1));
    if (!openAiList && !object.value("models"_L1).isArray())
        return std::nullopt;
    QStringList names;
    const QJsonArray entries
        = openAiList ? object.value("data"_L1).toArray() : object.value("models"_L1).toArray();
    for (const QJsonValue &entry : entries) {
        const QJsonObject model = entry.toObject();
        QString name = model.value(openAiList ? "id"_L1 : "name"_L1).toString();
        if (name.isEmpty())
            name = model.value("model"_L1).toString();
        if (!name.isEmpty() && !names.contains(name))
            names.append(name);
    }
    return names;
}

// The server's own words about a refusal: {"error":{"message":...}} or {"error":"..."}.
QString errorDetail(const QByteArray &body)
{
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    const QJsonValue error = object.value("error"_L1);
    const QString text
        = error.isObject() ? error.toObject().value("message"_L1).toString() : error.toString();
    return text.left(200);
}

// One GET with a deadline of its own; `done` runs unless `context` has gone.
void get(QNetworkAccessManager &network, const QUrl &url, const QString &key,
    std::chrono::milliseconds deadline, QObject *context, std::function<void(const Answer &)> done)
{
    QNetworkRequest request(url);
    request.setRawHeader("Accept", "application/json");
    if (!key.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + key.toUtf8());
    // A model server never redirects its list elsewhere; following one could hand the key on.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    QNetworkReply *reply = network.get(request);
    auto timedOut = std::make_shared<bool>(false);
    auto *timer = new QTimer(reply);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, reply, [reply, timedOut] {
        *timedOut = true;
        reply->abort();
    });
    timer->start(deadline);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > maxListBytes)
            reply->abort();
    });
    QPointer<QObject> alive(context);
    QObject::connect(
        reply, &QNetworkReply::finished, reply, [reply, timedOut, alive, done = std::move(done)] {
            reply->deleteLater();
            if (!alive)
                return;
            Answer answer;
            answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            answer.error = reply->error();
            answer.errorString = reply->errorString();
            answer.timedOut = *timedOut;
            answer.body = reply->readAll();
            done(answer);
        });
}

QUrl joined(QUrl base, const QString &path)
{
    QString basePath = base.path();
    while (basePath.endsWith(u'/'))
        basePath.chop(1);
    base.setPath(basePath + path);
    return base;
}

// Ollama answers its own list at the root, whatever the OpenAI base's path.
QUrl ollamaTagsUrl(QUrl base)
{
    base.setPath(u"/api/tags"_s);
    return base;
}

} // namespace

void listModels(QNetworkAccessManager &network, const QUrl &base, const QString &key,
    std::chrono::milliseconds deadline, QObject *context, std::function<void(const ModelList &)> done)
{
    auto result = std::make_shared<ModelList>();
    result->base = base;
    if (!base.isValid() || base.host().isEmpty()
        || (base.scheme() != "http"_L1 && base.scheme() != "https"_L1)) {
        result->outcome = ModelList::Outcome::InvalidUrl;
        QMetaObject::invokeMethod(
            context, [result, done] { done(*result); }, Qt::QueuedConnection);
        return;
    }

    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    auto tryOllama
        = [&network, base, key, deadline, context, result, done](const ModelList::Outcome otherwise) {
              get(network, ollamaTagsUrl(base), key, deadline, context,
                  [result, done, otherwise](const Answer &answer) {
                      if (answer.status == 200) {
                          if (const auto names = modelNames(answer.body)) {
                              result->outcome = ModelList::Outcome::Listed;
                              result->serverName = u"Ollama"_s;
                              result->models = *names;
                              result->httpStatus = 200;
                          }
                      }
                      if (!result->listed())
                          result->outcome = otherwise;
                      done(*result);
                  });
          };

    get(network, joined(base, u"/models"_s), key, deadline, context,
        [result, done, clock, tryOllama](const Answer &answer) {
            result->latencyMs = clock->elapsed();
            result->httpStatus = answer.status;
            if (answer.timedOut) {
                result->outcome = ModelList::Outcome::TimedOut;
            } else if (answer.error == QNetworkReply::SslHandshakeFailedError
                || answer.error == QNetworkReply::InsecureRedirectError) {
                result->outcome = ModelList::Outcome::TlsError;
                result->detail = answer.errorString;
            } else if (answer.status == 0) {
                result->outcome = ModelList::Outcome::Unreachable;
                result->detail = answer.errorString;
            } else if (answer.status == 401 || answer.status == 403) {
                result->outcome = ModelList::Outcome::Unauthorized;
                result->detail = errorDetail(answer.body);
            } else if (answer.status == 200 && modelNames(answer.body)) {
                result->outcome = ModelList::Outcome::Listed;
                result->models = *modelNames(answer.body);
            } else if (answer.status == 200 || answer.status == 404 || answer.status == 405) {
                result->detail = errorDetail(answer.body);
                tryOllama(ModelList::Outcome::NotFound);
                return;
            } else {
                result->outcome = ModelList::Outcome::HttpError;
                result->detail = errorDetail(answer.body);
            }
            done(*result);
        });
}

QList<ModelProbe::Candidate> ModelProbe::knownServers()
{
    return {
        { 11434, u"Ollama"_s },
        { 8080, u"llama.cpp"_s },
        { 1234, u"LM Studio"_s },
        { 8000, u"vLLM"_s },
    };
}

QList<ModelProbe::Candidate> ModelProbe::candidatesFrom(const QString &ports)
{
    const QList<Candidate> known = knownServers();
    QList<Candidate> candidates;
    for (const QString &field : ports.split(u',', Qt::SkipEmptyParts)) {
        bool ok = false;
        const uint port = field.trimmed().toUInt(&ok);
        if (!ok || port == 0 || port > 65535)
            return known;
        QString name;
        for (const Candidate &candidate : known) {
            if (candidate.port == port)
                name = candidate.serverName;
        }
        candidates.append({ quint16(port), name });
    }
    return candidates.isEmpty() ? known : candidates;
}

QList<ModelProbe::Candidate> ModelProbe::candidatesFromEnvironment()
{
    return candidatesFrom(QProcessEnvironment::systemEnvironment().value(u"TESSARY_LOCAL_MODEL_PORTS"_s));
}

ModelProbe::ModelProbe(QList<Candidate> candidates, std::chrono::milliseconds deadline, QObject *parent)
    : QObject(parent)
    , m_candidates(std::move(candidates))
    , m_deadline(deadline)
    , m_network(new QNetworkAccessManager(this))
{
}

ModelProbe::~ModelProbe() = default;

void ModelProbe::start()
{
    const int round = ++m_round;
    m_answers = QList<ModelList>(m_candidates.size());
    m_pending = int(m_candidates.size());
    if (m_pending == 0) {
        QMetaObject::invokeMethod(this, &ModelProbe::finished, Qt::QueuedConnection);
        return;
    }
    for (qsizetype i = 0; i < m_candidates.size(); ++i) {
        const Candidate candidate = m_candidates.at(i);
        QUrl base;
        base.setScheme(u"http"_s);
        base.setHost(u"127.0.0.1"_s);
        base.setPort(candidate.port);
        base.setPath(u"/v1"_s);
        listModels(
            *m_network, base, {}, m_deadline, this, [this, round, i, candidate](const ModelList &answer) {
                if (round != m_round)
                    return;
                m_answers[i] = answer;
                if (m_answers[i].serverName.isEmpty())
                    m_answers[i].serverName = candidate.serverName;
                if (--m_pending == 0)
                    Q_EMIT finished();
            });
    }
}

QList<ModelList> ModelProbe::found() const
{
    QList<ModelList> servers;
    for (const ModelList &answer : m_answers) {
        if (answer.listed())
            servers.append(answer);
    }
    return servers;
}
