#include "SwayWorkspace.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QLoggingCategory>
#include <QTimer>
#include <QWindow>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcSway, "tessary.platform.sway")

constexpr char magic[] = "i3-ipc";
constexpr qsizetype magicSize = sizeof(magic) - 1;
constexpr qsizetype headerSize = magicSize + 8;
constexpr quint32 runCommandType = 0;
constexpr quint32 getTreeType = 4;
// sway answers at once; a compositor that does not is treated as having no answer.
constexpr int deadlineMs = 1000;
constexpr int placeAttempts = 20;
constexpr int placeRetryMs = 50;

// The window with the keyboard focus: a leaf of the tree, tiled or floating.
std::optional<QJsonObject> focusedWindow(const QJsonObject &node)
{
    if (node.value(u"focused"_s).toBool())
        return node.contains(u"pid"_s) ? std::optional(node) : std::nullopt;
    for (const QString &children : { u"nodes"_s, u"floating_nodes"_s }) {
        for (const QJsonValue &child : node.value(children).toArray()) {
            if (auto found = focusedWindow(child.toObject()))
                return found;
        }
    }
    return std::nullopt;
}

// Titles are regular expressions in sway's criteria: every character that is not a
// letter or digit matches itself as "any character", which needs no quoting at all.
QString titlePattern(const QString &title)
{
    QString pattern;
    for (QChar c : title)
        pattern += c.isLetterOrNumber() ? c : u'.';
    return u"^"_s + pattern + u"$"_s;
}

} // namespace

SwayWorkspace::SwayWorkspace(QString socketPath, QObject *parent)
    : QObject(parent)
    , m_socketPath(std::move(socketPath))
{
}

SwayWorkspace::~SwayWorkspace() = default;

void SwayWorkspace::ask(quint32 type, const QByteArray &payload, Reply reply)
{
    const quint64 request = ++m_lastRequest;
    m_waiting.emplace_back(request, std::move(reply));
    QTimer::singleShot(deadlineMs, this, [this, request] {
        if (!m_waiting.empty() && m_waiting.front().first <= request) {
            qCDebug(lcSway) << "sway did not answer in time";
            fail();
        }
    });

    m_unsent += QByteArray(magic, magicSize);
    const quint32 fields[2] = { quint32(payload.size()), type }; // in sway's own byte order
    m_unsent.append(reinterpret_cast<const char *>(fields), sizeof(fields));
    m_unsent += payload;
    if (!m_socket) {
        m_socket = new QLocalSocket(this);
        connect(m_socket, &QLocalSocket::connected, this, &SwayWorkspace::sendUnsent);
        connect(m_socket, &QLocalSocket::readyRead, this, &SwayWorkspace::readReplies);
        // Queued: the error may come from inside connectToServer.
        connect(m_socket, &QLocalSocket::errorOccurred, this, &SwayWorkspace::fail, Qt::QueuedConnection);
        m_socket->connectToServer(m_socketPath);
    }
    sendUnsent();
}

void SwayWorkspace::sendUnsent()
{
    if (m_socket && m_socket->state() == QLocalSocket::ConnectedState) {
        m_socket->write(m_unsent);
        m_unsent.clear();
    }
}

void SwayWorkspace::runCommand(const QString &command, Reply reply)
{
    ask(runCommandType, command.toUtf8(), std::move(reply));
}

void SwayWorkspace::readReplies()
{
    m_buffer += m_socket->readAll();
    while (m_buffer.size() >= headerSize) {
        if (!m_buffer.startsWith(magic))
            return fail();
        const quint32 length = qFromUnaligned<quint32>(m_buffer.constData() + magicSize);
        if (m_buffer.size() < headerSize + qsizetype(length))
            return;
        const QJsonDocument document = QJsonDocument::fromJson(m_buffer.mid(headerSize, length));
        m_buffer.remove(0, headerSize + length);
        if (m_waiting.empty())
            continue;
        Reply reply = std::move(m_waiting.front().second);
        m_waiting.pop_front();
        if (reply)
            reply(document);
    }
}

// A lost connection or a late answer: everyone waiting hears "no answer", and the next
// question opens a fresh connection, so no late reply is taken for another's.
void SwayWorkspace::fail()
{
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->deleteLater();
        m_socket = nullptr;
    }
    m_buffer.clear();
    m_unsent.clear();
    std::deque<std::pair<quint64, Reply>> waiting;
    waiting.swap(m_waiting);
    for (auto &[request, reply] : waiting) {
        if (reply)
            reply(QJsonDocument());
    }
}

void SwayWorkspace::frontmostApplication(std::function<void(std::optional<RunningApplication>)> done)
{
    ask(getTreeType, {}, [done = std::move(done)](const QJsonDocument &tree) {
        const std::optional<QJsonObject> window = focusedWindow(tree.object());
        if (!window || window->value(u"pid"_s).toInteger() <= 0)
            return done(std::nullopt);
        RunningApplication app;
        app.pid = window->value(u"pid"_s).toInteger();
        app.window = quint32(window->value(u"id"_s).toInteger());
        // Wayland clients name themselves by app_id; X clients behind XWayland by WM_CLASS.
        const QJsonObject x11 = window->value(u"window_properties"_s).toObject();
        const QString appId = window->value(u"app_id"_s).toString();
        if (!appId.isEmpty()) {
            app.name = appId;
            app.windowClass = { appId, appId };
        } else {
            app.name = x11.value(u"class"_s).toString();
            app.windowClass = { x11.value(u"instance"_s).toString(), app.name };
        }
        done(app);
    });
}

void SwayWorkspace::activate(const RunningApplication &app, std::function<void(bool active)> done)
{
    const QString criteria = app.window ? u"con_id=%1"_s.arg(app.window) : u"pid=%1"_s.arg(app.pid);
    runCommand(u"[%1] focus"_s.arg(criteria));
    // The focus is only believed once the tree shows it.
    ask(getTreeType, {}, [pid = app.pid, done = std::move(done)](const QJsonDocument &tree) {
        const std::optional<QJsonObject> window = focusedWindow(tree.object());
        if (done)
            done(window && window->value(u"pid"_s).toInteger() == pid);
    });
}

void SwayWorkspace::activateSelf(QWindow *window)
{
    if (!window)
        return;
    const QString criteria = u"[pid=%1 title=\"%2\"]"_s.arg(QCoreApplication::applicationPid())
                                 .arg(titlePattern(window->title()));
    // Floating from its first frame on: sway applies the rule as the window appears.
    if (!m_placedTitles.contains(window->title())) {
        m_placedTitles.insert(window->title());
        runCommand(u"for_window %1 floating enable"_s.arg(criteria));
    }
    window->show();
    window->requestActivate();
    place(criteria, placeAttempts);
}

// The window reaches sway some frames after show(): until then nothing matches, and the
// placement is asked again a little later.
void SwayWorkspace::place(const QString &criteria, int attemptsLeft)
{
    runCommand(criteria + u" floating enable, move position cursor, focus"_s,
        [this, criteria, attemptsLeft](const QJsonDocument &reply) {
            const bool matched = reply.array().first().toObject().value(u"success"_s).toBool();
            if (!matched && attemptsLeft > 1)
                QTimer::singleShot(placeRetryMs, this,
                    [this, criteria, attemptsLeft] { place(criteria, attemptsLeft - 1); });
            else if (!matched)
                qCDebug(lcSway) << "sway did not place the window";
        });
}
