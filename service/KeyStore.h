#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

// Keys and tokens in the desktop's keyring, through the Secret Service (gnome-keyring,
// KWallet and others serve it), under one service name. Another process answers, so
// every call is asynchronous and answers on the thread that asked; a keyring that does
// not answer by the deadline, or stays locked, counts as absent. An answer reaches
// `done` only while `context` lives.
class KeyStore : public QObject
{
    Q_OBJECT

public:
    enum class Answer {
        Found,
        Missing, // the keyring answered and holds no such entry
        NoKeyring, // none answered, refused, or failed
    };
    using ReadDone = std::function<void(Answer answer, const QString &value)>;
    using WriteDone = std::function<void(bool stored)>;

    explicit KeyStore(const QString &service, std::chrono::milliseconds deadline = std::chrono::seconds(10),
        QObject *parent = nullptr);

    QString service() const { return m_service; }

    void read(const QString &name, QObject *context, ReadDone done);
    // An empty value removes the entry; removing one that is not there succeeds.
    void write(const QString &name, const QString &value, QObject *context, WriteDone done);

private:
    QString m_service;
    std::chrono::milliseconds m_deadline;
};
