#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// One release as the service describes it. Every member is required on the wire.
struct VersionData
{
    QString currentVersion;
    QString downloadUrl;
    QString releaseNotes;
    bool forceUpdate = false; // carried, not acted on
    QString minimumSupportedVersion; // carried, not acted on
};

// The body of the service's version reply.
struct VersionResponse
{
    bool success = false;
    std::optional<VersionData> data;
    std::optional<QString> error;

    // Strict: a missing or mistyped required member rejects the whole reply, with the
    // reason in *why. Members we do not know are ignored.
    static std::optional<VersionResponse> decode(const QByteArray &body, QString *why);
};

// Whether release `remote` is later than `current`, compared number by number
// ("1.10" > "1.9", "1.2" == "1.2.0"; pieces that are not numbers are dropped).
bool isNewerVersion(const QString &remote, const QString &current);
