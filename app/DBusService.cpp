#include "DBusService.h"

#include "RewriteSessions.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcDBus, "tessary.dbus")

const QString DBusService::serviceName = u"app.tessary.Tessary"_s;
const QString DBusService::objectPath = u"/app/tessary/Tessary"_s;

DBusService::DBusService(QObject *parent)
    : QObject(parent)
{
}

DBusService::~DBusService()
{
    if (!m_registered)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterObject(objectPath);
    bus.unregisterService(serviceName);
}

bool DBusService::registerService()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCWarning(lcDBus) << "no session bus:" << bus.lastError().message();
        return false;
    }
    if (!bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots)) {
        qCWarning(lcDBus) << "cannot export" << objectPath;
        return false;
    }
    // Without queueing: a second instance must learn at once that the name is taken.
    const auto reply = bus.interface()->registerService(serviceName,
        QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        bus.unregisterObject(objectPath);
        return false;
    }
    m_registered = true;
    return true;
}

bool DBusService::askRunningInstance(Request request, const QString &instruction)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    const bool withInstruction = request == Request::Trigger && !instruction.isEmpty();
    const QString method = withInstruction ? u"TriggerWithInstruction"_s
        : request == Request::Trigger      ? u"Trigger"_s
                                           : u"ShowSettings"_s;
    // Blocking is fine here: this process has nothing else to do and no window.
    QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, serviceName, method);
    if (withInstruction)
        call << instruction;
    const QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        qCWarning(lcDBus).noquote() << reply.errorMessage();
        return false;
    }
    return true;
}

void DBusService::HumanizeSelectedText(const QString &text)
{
    if (text.size() > RewriteSessions::maxTextLength && calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, RewriteSessions::tooLongMessage(text.size()));
    Q_EMIT humanizeRequested(text);
}

void DBusService::Trigger()
{
    Q_EMIT triggerRequested();
}

void DBusService::TriggerWithInstruction(const QString &instruction)
{
    if (instruction.trimmed().isEmpty()) {
        Q_EMIT triggerRequested();
        return;
    }
    Q_EMIT triggerWithInstructionRequested(instruction);
}

void DBusService::ShowSettings()
{
    Q_EMIT settingsRequested();
}

void DBusService::UndoLastRewrite()
{
    if (!m_undoAvailable) {
        if (calledFromDBus())
            sendErrorReply(QDBusError::Failed,
                tr("Nothing to undo: no rewrite has been written since Tessary started, or the last one "
                   "was taken back already."));
        return;
    }
    Q_EMIT undoRequested();
}
