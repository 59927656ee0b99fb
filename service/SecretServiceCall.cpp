#include "SecretServiceCall.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QLoggingCategory>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcKeyStore, "tessary.keystore")

namespace {
const QString secretsService = u"org.freedesktop.secrets"_s;
const QString secretsPath = u"/org/freedesktop/secrets"_s;
const QString sessionInterface = u"org.freedesktop.Secret.Session"_s;
const QString promptInterface = u"org.freedesktop.Secret.Prompt"_s;
const QString noObject = u"/"_s;

QDBusConnection bus()
{
    return QDBusConnection::sessionBus();
}

SecretServiceCall::Items items(const QDBusMessage &reply, int argument)
{
    return qdbus_cast<SecretServiceCall::Items>(reply.arguments().value(argument));
}

QDBusObjectPath objectPath(const QDBusMessage &reply, int argument)
{
    return qdbus_cast<QDBusObjectPath>(reply.arguments().value(argument));
}
} // namespace

const QString SecretServiceCall::serviceInterface = u"org.freedesktop.Secret.Service"_s;
const QString SecretServiceCall::collectionInterface = u"org.freedesktop.Secret.Collection"_s;
const QString SecretServiceCall::itemInterface = u"org.freedesktop.Secret.Item"_s;

QDBusArgument &operator<<(QDBusArgument &argument, const Secret &secret)
{
    argument.beginStructure();
    argument << secret.session << secret.parameters << secret.value << secret.contentType;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, Secret &secret)
{
    argument.beginStructure();
    argument >> secret.session >> secret.parameters >> secret.value >> secret.contentType;
    argument.endStructure();
    return argument;
}

SecretServiceCall::SecretServiceCall(
    const QString &entry, std::chrono::milliseconds deadline, Next failed, QObject *context)
    : QObject(context)
    , m_entry(entry)
    , m_failed(std::move(failed))
{
    [[maybe_unused]] static const bool registered = [] {
        qDBusRegisterMetaType<Secret>();
        qDBusRegisterMetaType<Attributes>();
        return true;
    }();
    QTimer::singleShot(deadline, this, [this] { fail(u"it did not answer in time"_s); });
}

SecretServiceCall::~SecretServiceCall()
{
    // The keyring would keep the session until the program ends.
    if (!m_session.path().isEmpty())
        bus().send(
            QDBusMessage::createMethodCall(secretsService, m_session.path(), sessionInterface, u"Close"_s));
}

void SecretServiceCall::openSession(Next next)
{
    call(secretsPath, serviceInterface, u"OpenSession"_s,
        { u"plain"_s, QVariant::fromValue(QDBusVariant(QString())) },
        [this, next](const QDBusMessage &reply) {
            m_session = objectPath(reply, 1);
            next();
        });
}

Secret SecretServiceCall::secret(const QString &text) const
{
    return { m_session, {}, text.toUtf8(), u"text/plain"_s };
}

void SecretServiceCall::find(const Attributes &attributes, std::function<void(const Items &items)> next)
{
    call(secretsPath, serviceInterface, u"SearchItems"_s, { QVariant::fromValue(attributes) },
        [this, next](const QDBusMessage &reply) {
            const Items found = items(reply, 0) + items(reply, 1);
            unlock(items(reply, 1), [next, found] { next(found); });
        });
}

void SecretServiceCall::defaultCollection(std::function<void(const QDBusObjectPath &collection)> next)
{
    call(secretsPath, serviceInterface, u"ReadAlias"_s, { u"default"_s },
        [this, next](const QDBusMessage &reply) {
            const QDBusObjectPath collection = objectPath(reply, 0);
            if (collection.path() != noObject)
                return next(collection);
            const QVariantMap properties { { collectionInterface + u".Label"_s, u"Default keyring"_s } };
            call(secretsPath, serviceInterface, u"CreateCollection"_s, { properties, u"default"_s },
                [this, next](const QDBusMessage &created) {
                    const QDBusObjectPath made = objectPath(created, 0);
                    if (made.path() != noObject)
                        return next(made);
                    prompt(objectPath(created, 1), [next](const QDBusVariant &result) {
                        next(qvariant_cast<QDBusObjectPath>(result.variant()));
                    });
                });
        });
}

void SecretServiceCall::unlock(const Items &objects, Next next)
{
    if (objects.isEmpty())
        return next();
    callAndPrompt(
        secretsPath, serviceInterface, u"Unlock"_s, { QVariant::fromValue(objects) }, 1, std::move(next));
}

void SecretServiceCall::forEach(
    const Items &items, std::function<void(const QDBusObjectPath &item, Next next)> step, Next next)
{
    if (items.isEmpty())
        return next();
    step(items.first(), [this, rest = items.mid(1), step, next] { forEach(rest, step, next); });
}

void SecretServiceCall::call(const QString &path, const QString &interface, const QString &method,
    const QVariantList &arguments, std::function<void(const QDBusMessage &reply)> next)
{
    QDBusMessage message = QDBusMessage::createMethodCall(secretsService, path, interface, method);
    message.setArguments(arguments);
    auto *watcher = new QDBusPendingCallWatcher(bus().asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, next, method](QDBusPendingCallWatcher *done) {
            done->deleteLater();
            if (m_ended)
                return;
            const QDBusMessage reply = done->reply();
            if (reply.type() == QDBusMessage::ErrorMessage)
                return fail(method + u": "_s + reply.errorMessage());
            next(reply);
        });
}

void SecretServiceCall::callAndPrompt(const QString &path, const QString &interface, const QString &method,
    const QVariantList &arguments, int promptArgument, Next next)
{
    call(path, interface, method, arguments, [this, promptArgument, next](const QDBusMessage &reply) {
        prompt(objectPath(reply, promptArgument), [next](const QDBusVariant &) { next(); });
    });
}

void SecretServiceCall::prompt(
    const QDBusObjectPath &prompt, std::function<void(const QDBusVariant &result)> next)
{
    if (prompt.path() == noObject)
        return next(QDBusVariant());
    // Listen before asking, so that a quick answer is not missed. The prompt's path is
    // the keyring's own, so any sender is taken, and no owner has to be looked up.
    m_prompt = prompt.path();
    m_prompted = std::move(next);
    bus().connect(QString(), m_prompt, promptInterface, u"Completed"_s, this,
        SLOT(promptCompleted(bool, QDBusVariant)));
    call(m_prompt, promptInterface, u"Prompt"_s, { QString() }, [](const QDBusMessage &) {});
}

void SecretServiceCall::promptCompleted(bool dismissed, const QDBusVariant &result)
{
    stopListening();
    if (dismissed)
        return fail(u"its question to the user was dismissed"_s);
    std::exchange(m_prompted, nullptr)(result);
}

void SecretServiceCall::stopListening()
{
    if (m_prompt.isEmpty())
        return;
    bus().disconnect(QString(), std::exchange(m_prompt, QString()), promptInterface, u"Completed"_s, this,
        SLOT(promptCompleted(bool, QDBusVariant)));
}

void SecretServiceCall::finish(const Next &answer)
{
    if (m_ended)
        return;
    end();
    answer();
}

void SecretServiceCall::fail(const QString &why)
{
    if (m_ended)
        return;
    // The keyring's messages name entries and objects, never a value.
    qCInfo(lcKeyStore).noquote() << "keyring unavailable for" << m_entry + u":"_s << why;
    end();
    m_failed();
}

void SecretServiceCall::end()
{
    m_ended = true;
    stopListening();
    deleteLater();
}
