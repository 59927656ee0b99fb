#pragma once

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QList>
#include <QMap>
#include <QObject>

#include <chrono>
#include <functional>

class QDBusArgument;

// A value as the Secret Service hands it over: the session that encoded it, the
// encoding's parameters, the bytes, and their content type.
struct Secret
{
    QDBusObjectPath session;
    QByteArray parameters;
    QByteArray value;
    QString contentType;
};
Q_DECLARE_METATYPE(Secret)
QDBusArgument &operator<<(QDBusArgument &argument, const Secret &secret);
const QDBusArgument &operator>>(const QDBusArgument &argument, Secret &secret);

// One exchange with the desktop's keyring over the Secret Service's D-Bus API: a chain
// of asynchronous calls, prompts included, that ends exactly once, either in finish()
// or by failing (an error answered, a prompt dismissed, or the deadline passed). It is
// a child of the object that asked, so nothing answers once that is gone, and it
// deletes itself when it ends.
class SecretServiceCall : public QObject
{
    Q_OBJECT

public:
    using Attributes = QMap<QString, QString>;
    using Items = QList<QDBusObjectPath>;
    using Next = std::function<void()>;

    // `entry` names what is looked for in the log, never its value.
    SecretServiceCall(
        const QString &entry, std::chrono::milliseconds deadline, Next failed, QObject *context);
    ~SecretServiceCall() override;

    // Opens a session that hands values over as they are: they travel only over the
    // user's own bus, as they do to any program that asks the keyring for them.
    void openSession(Next next);
    QDBusObjectPath session() const { return m_session; }
    Secret secret(const QString &text) const;

    // The entries with these attributes, unlocked (the keyring may ask the user first).
    void find(const Attributes &attributes, std::function<void(const Items &items)> next);
    // The collection new entries go to, made if the keyring has none yet.
    void defaultCollection(std::function<void(const QDBusObjectPath &collection)> next);
    void unlock(const Items &objects, Next next);
    // Runs `step` for each item in turn, then `next`.
    void forEach(
        const Items &items, std::function<void(const QDBusObjectPath &item, Next next)> step, Next next);

    void call(const QString &path, const QString &interface, const QString &method,
        const QVariantList &arguments, std::function<void(const QDBusMessage &reply)> next);
    // Lets the user answer what the keyring asks ("/": nothing to ask), then `next` with
    // the prompt's result.
    void prompt(const QDBusObjectPath &prompt, std::function<void(const QDBusVariant &result)> next);
    // Calls `method`, whose reply names at `promptArgument` the prompt to run before `next`.
    void callAndPrompt(const QString &path, const QString &interface, const QString &method,
        const QVariantList &arguments, int promptArgument, Next next);

    // Ends the exchange: `answer` runs now, and nothing after it.
    void finish(const Next &answer);

    static const QString serviceInterface;
    static const QString collectionInterface;
    static const QString itemInterface;

private Q_SLOTS:
    void promptCompleted(bool dismissed, const QDBusVariant &result);

private:
    void fail(const QString &why);
    void end();
    void stopListening(); // to the prompt, if one is shown

    QString m_entry;
    Next m_failed;
    bool m_ended = false;
    QDBusObjectPath m_session;
    QString m_prompt; // the prompt's path while one is shown
    std::function<void(const QDBusVariant &result)> m_prompted;
};
