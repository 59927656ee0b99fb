#include "PortalRequest.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {
const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString requestInterface = u"org.freedesktop.portal.Request"_s;
// A portal that asks the user may wait on them; one that does not answers at once.
constexpr int deadline = 30000; // ms
} // namespace

PortalRequest::PortalRequest(QDBusConnection bus, Done done, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_done(std::move(done))
{
}

void PortalRequest::send(QDBusConnection bus, const QString &interface, const QString &method,
    QVariantList arguments, QVariantMap options, Done done, QObject *context)
{
    auto *request = new PortalRequest(bus, std::move(done), context);
    static quint64 counter = 0;
    const QString token = u"tessary_%1"_s.arg(++counter);
    // Listen before asking, so that a quick answer is not missed.
    request->m_path = handle(bus, u"request"_s, token);
    bus.connect(portalService, request->m_path, requestInterface, u"Response"_s, request,
        SLOT(answered(uint, QVariantMap)));

    options.insert(u"handle_token"_s, token);
    QDBusMessage call = QDBusMessage::createMethodCall(portalService, portalPath, interface, method);
    call.setArguments(arguments << options);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, deadline), request);
    connect(watcher, &QDBusPendingCallWatcher::finished, request, [request](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        if (w->isError())
            request->finish(2, {});
    });
    QTimer::singleShot(deadline, request, [request] { request->finish(2, {}); });
}

QString PortalRequest::handle(const QDBusConnection &bus, const QString &kind, const QString &token)
{
    QString sender = bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    return portalPath + u'/' + kind + u'/' + sender + u'/' + token;
}

void PortalRequest::answered(uint response, const QVariantMap &results)
{
    finish(response, results);
}

void PortalRequest::finish(uint response, const QVariantMap &results)
{
    if (!m_done)
        return;
    m_bus.disconnect(
        portalService, m_path, requestInterface, u"Response"_s, this, SLOT(answered(uint, QVariantMap)));
    std::exchange(m_done, nullptr)(response, results);
    deleteLater();
}
