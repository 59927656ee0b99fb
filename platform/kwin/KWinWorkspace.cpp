#include "KWinWorkspace.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryFile>
#include <QTimer>
#include <QWindow>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcKWin, "tessary.platform.kwin")

namespace {
const QString kwinService = u"org.kde.KWin"_s;
const QString scriptingInterface = u"org.kde.kwin.Scripting"_s;
const QString replyPath = u"/app/tessary/KWinScript"_s;
// KWin answers at once; a compositor that does not is treated as having no answer.
constexpr int deadline = 1000; // ms

QString jsString(const QString &text)
{
    QString quoted = text;
    quoted.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s).replace(u'\n', u"\\n"_s);
    return u'"' + quoted + u'"';
}
} // namespace

KWinWorkspace::KWinWorkspace(QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
    m_registered = m_bus.registerObject(replyPath, this, QDBusConnection::ExportScriptableSlots);
}

KWinWorkspace::~KWinWorkspace()
{
    const QSet<QString> loaded = m_loaded;
    for (const QString &plugin : loaded)
        unload(plugin);
    if (m_registered)
        m_bus.unregisterObject(replyPath);
}

void KWinWorkspace::unload(const QString &plugin)
{
    if (!m_loaded.remove(plugin))
        return;
    QDBusMessage call
        = QDBusMessage::createMethodCall(kwinService, u"/Scripting"_s, scriptingInterface, u"unloadScript"_s);
    call << plugin;
    m_bus.send(call);
}

void KWinWorkspace::run(const QString &body, Reply reply)
{
    // One number for the whole process names the request and its script. KWin refuses a
    // second script under a name it has loaded, and one workspace may follow another at the
    // same reply path: a late answer meant for the one before finds no request here.
    static int lastScript = 0;
    const int request = ++lastScript;
    m_waiting.insert(request, std::move(reply));
    QTimer::singleShot(deadline, this, [this, request] { finish(request, 0, {}); });

    // Every script ends by calling back, so the caller hears once, found or not.
    const QString script
        = u"function answer(pid, windowClass) {\n"
          u"    callDBus(%1, %2, \"app.tessary.KWinScript\", \"reply\", %3, pid, windowClass);\n"
          u"}\n"_s.arg(jsString(m_bus.baseService()), jsString(replyPath))
              .arg(request)
        + body;
    auto file = std::make_shared<QTemporaryFile>(u"%1/tessary-kwin-XXXXXX.js"_s.arg(QDir::tempPath()));
    if (!file->open() || file->write(script.toUtf8()) < 0 || !file->flush()) {
        finish(request, 0, {});
        return;
    }
    // The process id keeps the name apart from another Tessary running beside this one.
    const QString plugin = u"tessary-%1-%2"_s.arg(QCoreApplication::applicationPid()).arg(request);
    QDBusMessage load
        = QDBusMessage::createMethodCall(kwinService, u"/Scripting"_s, scriptingInterface, u"loadScript"_s);
    load << file->fileName() << plugin;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(load, deadline), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, request, plugin, file](QDBusPendingCallWatcher *w) {
            w->deleteLater();
            const QDBusPendingReply<int> id = *w;
            if (id.isError() || id.value() < 0) {
                qCDebug(lcKWin) << "KWin did not load a script:" << id.error().message();
                finish(request, 0, {});
                return;
            }
            // Not the script's own object: its id is the count of scripts loaded, so once an
            // earlier one is unloaded a new script can get the id, and the object path, of one
            // still loaded, and be never run. start() runs every loaded script not yet running.
            m_bus.send(
                QDBusMessage::createMethodCall(kwinService, u"/Scripting"_s, scriptingInterface, u"start"_s));
            // The script has run once its answer is here or its time is up; then it goes,
            // also when this workspace goes first.
            m_loaded.insert(plugin);
            QTimer::singleShot(deadline, this, [this, plugin, file] { unload(plugin); });
        });
}

void KWinWorkspace::reply(int request, int pid, const QString &windowClass)
{
    finish(request, pid, windowClass);
}

void KWinWorkspace::finish(int request, qint64 pid, const QString &windowClass)
{
    Reply reply = m_waiting.take(request);
    if (reply)
        reply(pid, windowClass);
}

void KWinWorkspace::frontmostApplication(std::function<void(std::optional<RunningApplication>)> done)
{
    run(u"const c = workspace.activeClient;\n"
        u"answer(c ? c.pid : 0, c ? String(c.resourceClass) : \"\");\n"_s,
        [done = std::move(done)](qint64 pid, const QString &windowClass) {
            if (pid <= 0) {
                done(std::nullopt);
                return;
            }
            RunningApplication app;
            app.pid = pid;
            app.name = windowClass;
            done(app);
        });
}

void KWinWorkspace::activate(const RunningApplication &app, std::function<void(bool active)> done)
{
    // The application's newest window that a user works in.
    run(u"const windows = workspace.clientList();\n"
        u"let found = null;\n"
        u"for (let i = windows.length - 1; i >= 0 && !found; --i)\n"
        u"    if (windows[i].pid === %1 && windows[i].normalWindow) found = windows[i];\n"
        u"if (found) workspace.activeClient = found;\n"
        u"const now = workspace.activeClient;\n"
        u"answer(found && now && now.pid === found.pid ? found.pid : 0, \"\");\n"_s.arg(app.pid),
        [done = std::move(done)](qint64 pid, const QString &) {
            if (done)
                done(pid > 0);
        });
}

void KWinWorkspace::activateSelf(QWindow *window)
{
    if (!window)
        return;
    window->show();
    window->requestActivate();
    // The window may reach KWin after the script: then it is placed when it arrives.
    run(u"function place(c) {\n"
        u"    if (c.pid !== %1 || c.caption !== %2) return false;\n"
        u"    const pos = workspace.cursorPos;\n"
        u"    const area = workspace.clientArea(KWin.MaximizeArea, c);\n"
        u"    const g = c.frameGeometry;\n"
        u"    const x = Math.max(area.x, Math.min(pos.x - g.width / 2, area.x + area.width - g.width));\n"
        u"    const y = Math.max(area.y, Math.min(pos.y + 16, area.y + area.height - g.height));\n"
        u"    c.frameGeometry = { x: x, y: y, width: g.width, height: g.height };\n"
        u"    c.keepAbove = true;\n"
        u"    workspace.activeClient = c;\n"
        u"    answer(c.pid, String(c.resourceClass));\n"
        u"    return true;\n"
        u"}\n"
        u"if (!workspace.clientList().some(place))\n"
        u"    workspace.clientAdded.connect(place);\n"_s.arg(QCoreApplication::applicationPid())
            .arg(jsString(window->title())),
        [](qint64 pid, const QString &) {
            if (pid <= 0)
                qCDebug(lcKWin) << "KWin did not place the popup";
        });
}
