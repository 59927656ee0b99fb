#pragma once

#include <QString>
#include <QStringList>

// Why a rewrite or a connection test did not work, carried as a value from where it is
// found to whoever shows it: nothing downstream reads the sentence to decide anything.
struct Failure
{
    enum class Kind {
        Service, // the service's or the model server's own words
        NoResponse, // the transfer ended without any body
        Network, // a transport failure the network layer describes
        Unreachable,
        HostUnknown,
        TimedOut,
        Tls,
        HttpStatus, // an error status whose body said nothing usable
        WrongKey,
        RateLimited,
        UnknownModel,
        NoModelChosen,
        InvalidAddress,
        NoText, // the model answered, but with no text at all
        UnclosedThinking, // the model's thinking never ended, so no answer came
        TooLong, // the reply passed the bound on a rewrite's length
    };
    // What the user can do about it; the view offers it as a button.
    enum class Fix { None, Settings, ModelServer, Retry };

    Kind kind = Kind::Service;
    // Plain sentences, without commands in them: those are in `commands`.
    QString message;
    Fix fix = Fix::None;
    // Commands the view shows as copyable code, never inside the sentence.
    QStringList commands;
    // The wording for a view that is Settings itself, where "in Settings" sends nowhere;
    // empty when `message` serves there too.
    QString settingsWording;
    // The HTTP status or the network layer's error code, when one caused it.
    int code = 0;

    QString messageInSettings() const { return settingsWording.isEmpty() ? message : settingsWording; }

    static Failure service(const QString &message)
    {
        return { Kind::Service, message, Fix::Retry, {}, {}, 0 };
    }
    static Failure of(Kind kind, const QString &message, Fix fix = Fix::Retry)
    {
        return { kind, message, fix, {}, {}, 0 };
    }

    friend bool operator==(const Failure &, const Failure &) = default;
};
