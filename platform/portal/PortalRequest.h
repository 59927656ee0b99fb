#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

// One call to a desktop portal that answers later, on a Request object of its own:
// the answer (or the call's failure, or the deadline) reaches `done` exactly once.
class PortalRequest : public QObject
{
    Q_OBJECT

public:
    // response 0 is success; 1 the user cancelled; 2 anything else, also a failed call
    // and a deadline passed.
    using Done = std::function<void(uint response, const QVariantMap &results)>;

    // `options` must not hold handle_token: the request adds its own.
    static void send(QDBusConnection bus, const QString &interface, const QString &method,
        QVariantList arguments, QVariantMap options, Done done, QObject *context);

    // The object path the portal gives a request or session ("request", "session") that
    // this connection asks for with token: known before the portal answers.
    static QString handle(const QDBusConnection &bus, const QString &kind, const QString &token);

private Q_SLOTS:
    void answered(uint response, const QVariantMap &results);

private:
    PortalRequest(QDBusConnection bus, Done done, QObject *parent);
    void finish(uint response, const QVariantMap &results);

    QDBusConnection m_bus;
    Done m_done;
    QString m_path;
};
