#include "VersionData.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QList>
#include <QStringList>
#include <QVersionNumber>

using namespace Qt::StringLiterals;

namespace {

// Reads one member of the expected type; records the first problem in *why.
template<typename T> bool readMember(const QJsonObject &object, const QString &key, T *out, QString *why)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined()) {
        *why = u"missing member \"%1\""_s.arg(key);
        return false;
    }
    if constexpr (std::is_same_v<T, bool>) {
        if (!value.isBool()) {
            *why = u"member \"%1\" is not a boolean"_s.arg(key);
            return false;
        }
        *out = value.toBool();
    } else {
        if (!value.isString()) {
            *why = u"member \"%1\" is not a string"_s.arg(key);
            return false;
        }
        *out = value.toString();
    }
    return true;
}

std::optional<VersionData> decodeData(const QJsonObject &object, QString *why)
{
    VersionData data;
    if (readMember(object, u"current_version"_s, &data.currentVersion, why)
        && readMember(object, u"download_url"_s, &data.downloadUrl, why)
        && readMember(object, u"release_notes"_s, &data.releaseNotes, why)
        && readMember(object, u"force_update"_s, &data.forceUpdate, why)
        && readMember(object, u"minimum_supported_version"_s, &data.minimumSupportedVersion, why))
        return data;
    *why = u"release record: "_s + *why;
    return std::nullopt;
}

// An optional sign and digits, within 64 bits; anything else is not a number here
// (toLongLong alone would also take blanks around the digits).
std::optional<qint64> versionNumber(const QString &piece)
{
    const qsizetype start = piece.startsWith(u'+') || piece.startsWith(u'-') ? 1 : 0;
    if (piece.size() == start)
        return std::nullopt;
    for (qsizetype i = start; i < piece.size(); ++i) {
        if (piece.at(i) < u'0' || piece.at(i) > u'9')
            return std::nullopt;
    }
    bool ok = false;
    const qint64 number = piece.toLongLong(&ok);
    return ok ? std::optional(number) : std::nullopt;
}

QList<qint64> versionNumbers(const QString &version)
{
    QList<qint64> numbers;
    for (const QString &piece : version.split(u'.', Qt::SkipEmptyParts)) {
        if (const auto number = versionNumber(piece))
            numbers.append(*number);
    }
    return numbers;
}

// A place may be any 64-bit number, negatives included, while QVersionNumber compares
// best with non-negative ints (it subtracts them): each place, moved into the unsigned
// range, becomes three places of at most 31 bits, which order as the number does.
// Missing places count as 0, so both sides get the same number of places.
QVersionNumber comparableVersion(QList<qint64> numbers, qsizetype places)
{
    numbers.resize(places, 0);
    QList<int> segments;
    segments.reserve(places * 3);
    for (const qint64 number : numbers) {
        const quint64 bits = quint64(number) ^ (quint64(1) << 63);
        segments << int(bits >> 62) << int((bits >> 31) & 0x7fffffff) << int(bits & 0x7fffffff);
    }
    return QVersionNumber(std::move(segments));
}

} // namespace

std::optional<VersionResponse> VersionResponse::decode(const QByteArray &body, QString *why)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *why = u"the reply is not JSON: "_s + parseError.errorString();
        return std::nullopt;
    }
    if (!document.isObject()) {
        *why = u"the reply is not a JSON object"_s;
        return std::nullopt;
    }
    const QJsonObject object = document.object();

    VersionResponse response;
    if (!readMember(object, u"success"_s, &response.success, why))
        return std::nullopt;

    const QJsonValue data = object.value(u"data"_s);
    if (data.isObject()) {
        response.data = decodeData(data.toObject(), why);
        if (!response.data)
            return std::nullopt;
    } else if (!data.isUndefined() && !data.isNull()) {
        *why = u"member \"data\" is not an object"_s;
        return std::nullopt;
    }

    const QJsonValue error = object.value(u"error"_s);
    if (error.isString()) {
        response.error = error.toString();
    } else if (!error.isUndefined() && !error.isNull()) {
        *why = u"member \"error\" is not a string"_s;
        return std::nullopt;
    }
    return response;
}

bool isNewerVersion(const QString &remote, const QString &current)
{
    const QList<qint64> r = versionNumbers(remote);
    const QList<qint64> c = versionNumbers(current);
    const qsizetype places = std::max(r.size(), c.size());
    return comparableVersion(r, places) > comparableVersion(c, places);
}
