#include "KeyStore.h"

#include "SecretServiceCall.h"

#include <QDBusArgument>

using namespace Qt::StringLiterals;

namespace {

using Attributes = SecretServiceCall::Attributes;
using Items = SecretServiceCall::Items;
using Next = SecretServiceCall::Next;

// The attributes entries have been stored under from the first build that used the
// keyring, so that the entries of an earlier start are found.
Attributes lookup(const QString &service, const QString &name)
{
    return { { u"server"_s, service }, { u"user"_s, name } };
}

void readFirst(SecretServiceCall *call, const Items &items, const KeyStore::ReadDone &done)
{
    if (items.isEmpty())
        return call->finish([done] { done(KeyStore::Answer::Missing, QString()); });
    call->call(items.first().path(), SecretServiceCall::itemInterface, u"GetSecret"_s,
        { QVariant::fromValue(call->session()) }, [call, done](const QDBusMessage &reply) {
            const auto secret = qdbus_cast<Secret>(reply.arguments().value(0));
            call->finish(
                [done, value = QString::fromUtf8(secret.value)] { done(KeyStore::Answer::Found, value); });
        });
}

void deleteEach(SecretServiceCall *call, const Items &items, const Next &next)
{
    call->forEach(
        items,
        [call](const QDBusObjectPath &item, const Next &deleted) {
            call->callAndPrompt(item.path(), SecretServiceCall::itemInterface, u"Delete"_s, {}, 0, deleted);
        },
        next);
}

// Every entry under the name gets the new value, even one another program stored: two
// entries holding different values could each be read back.
void setEach(SecretServiceCall *call, const Items &items, const QString &value, const Next &next)
{
    const QVariant secret = QVariant::fromValue(call->secret(value));
    call->forEach(
        items,
        [call, secret](const QDBusObjectPath &item, const Next &set) {
            call->call(item.path(), SecretServiceCall::itemInterface, u"SetSecret"_s, { secret },
                [set](const QDBusMessage &) { set(); });
        },
        next);
}

void create(SecretServiceCall *call, const QString &service, const QString &name, const QString &value,
    const Next &next)
{
    call->defaultCollection([=](const QDBusObjectPath &collection) {
        call->unlock({ collection }, [=] {
            Attributes attributes = lookup(service, name);
            attributes.insert(u"type"_s, u"plaintext"_s);
            const QVariantMap properties {
                { SecretServiceCall::itemInterface + u".Label"_s, service + u": "_s + name },
                { SecretServiceCall::itemInterface + u".Attributes"_s, QVariant::fromValue(attributes) },
            };
            call->callAndPrompt(collection.path(), SecretServiceCall::collectionInterface, u"CreateItem"_s,
                { properties, QVariant::fromValue(call->secret(value)), true }, 1, next);
        });
    });
}

} // namespace

KeyStore::KeyStore(const QString &service, std::chrono::milliseconds deadline, QObject *parent)
    : QObject(parent)
    , m_service(service)
    , m_deadline(deadline)
{
}

void KeyStore::read(const QString &name, QObject *context, ReadDone done)
{
    auto *call = new SecretServiceCall(
        name, m_deadline, [done] { done(Answer::NoKeyring, QString()); }, context);
    call->openSession([call, found = lookup(m_service, name), done] {
        call->find(found, [call, done](const Items &items) { readFirst(call, items, done); });
    });
}

void KeyStore::write(const QString &name, const QString &value, QObject *context, WriteDone done)
{
    auto *call = new SecretServiceCall(
        name, m_deadline, [done] { done(false); }, context);
    const Next stored = [call, done] { call->finish([done] { done(true); }); };
    if (value.isEmpty()) {
        call->find(
            lookup(m_service, name), [call, stored](const Items &items) { deleteEach(call, items, stored); });
        return;
    }
    call->openSession([call, service = m_service, name, value, stored] {
        call->find(lookup(service, name), [=](const Items &items) {
            if (items.isEmpty())
                create(call, service, name, value, stored);
            else
                setEach(call, items, value, stored);
        });
    });
}
