#include "DataControlPasteboard.h"

#include "OfferReader.h"
#include "SourceWriter.h"
#include "WaylandConnection.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QClipboard>
#include <QLoggingCategory>
#include <QMimeData>
#include <QPointer>

#include <algorithm>
#include <unistd.h>
#include <wayland-client.h>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcClipboard, "tessary.platform.clipboard")

// The names text goes by, best first: programs of either toolkit and X programs behind
// XWayland each ask for one of them.
const QStringList textTypes { u"text/plain;charset=utf-8"_s, u"text/plain"_s, u"UTF8_STRING"_s, u"TEXT"_s,
    u"STRING"_s };

// Clipboard managers skip contents marked like this: our rewrite is only passing through.
const QString passwordManagerHint = u"x-kde-passwordManagerHint"_s;

std::optional<QString> textOf(const QMimeData &data)
{
    for (const QString &type : textTypes) {
        if (data.hasFormat(type))
            return QString::fromUtf8(data.data(type));
    }
    return std::nullopt;
}

} // namespace

const zwlr_data_control_device_v1_listener DataControlPasteboard::deviceListener {
    .data_offer =
        [](void *data, zwlr_data_control_device_v1 *, zwlr_data_control_offer_v1 *offer) {
            auto *self = static_cast<DataControlPasteboard *>(data);
            self->m_offers.insert(offer, {});
            zwlr_data_control_offer_v1_add_listener(offer, &offerListener, self);
        },
    .selection =
        [](void *data, zwlr_data_control_device_v1 *, zwlr_data_control_offer_v1 *offer) {
            auto *self = static_cast<DataControlPasteboard *>(data);
            self->forgetSelection();
            self->m_selection = offer;
            ++self->m_changeCount;
            qCDebug(lcClipboard) << "clipboard changed:" << self->m_offers.value(offer);
            Q_EMIT self->changed();
        },
    .finished =
        [](void *data, zwlr_data_control_device_v1 *device) {
            auto *self = static_cast<DataControlPasteboard *>(data);
            qCWarning(lcClipboard) << "the compositor withdrew the clipboard's data control";
            zwlr_data_control_device_v1_destroy(device);
            self->m_device = nullptr;
        },
    .primary_selection =
        [](void *data, zwlr_data_control_device_v1 *, zwlr_data_control_offer_v1 *offer) {
            // Bound at version 1, so never sent; an offer that comes anyway is not ours to keep.
            auto *self = static_cast<DataControlPasteboard *>(data);
            if (offer && offer != self->m_selection) {
                self->m_offers.remove(offer);
                zwlr_data_control_offer_v1_destroy(offer);
            }
        },
};

const zwlr_data_control_offer_v1_listener DataControlPasteboard::offerListener {
    .offer =
        [](void *data, zwlr_data_control_offer_v1 *offer, const char *mimeType) {
            auto *self = static_cast<DataControlPasteboard *>(data);
            self->m_offers[offer].append(QString::fromUtf8(mimeType));
        },
};

const zwlr_data_control_source_v1_listener DataControlPasteboard::sourceListener {
    .send =
        [](void *data, zwlr_data_control_source_v1 *source, const char *mimeType, int32_t fd) {
            auto *self = static_cast<DataControlPasteboard *>(data);
            const std::shared_ptr<const QMimeData> contents = self->m_sources.value(source);
            const QString type = QString::fromUtf8(mimeType);
            if (!contents || !contents->hasFormat(type)) {
                close(fd);
                return;
            }
            qCDebug(lcClipboard) << "sending" << type << contents->data(type).size() << "bytes";
            SourceWriter::write(fd, contents->data(type));
        },
    .cancelled =
        [](void *data, zwlr_data_control_source_v1 *source) {
            // Another program took the clipboard: ours is gone for good.
            auto *self = static_cast<DataControlPasteboard *>(data);
            self->m_sources.remove(source);
            if (self->m_ownSource == source)
                self->m_ownSource = nullptr;
            zwlr_data_control_source_v1_destroy(source);
        },
};

std::unique_ptr<DataControlPasteboard> DataControlPasteboard::open(QClipboard *ownClipboard)
{
    std::unique_ptr<WaylandConnection> connection = WaylandConnection::open();
    if (!connection)
        return nullptr;
    // Version 1 is all the regular clipboard needs; the primary selection is read elsewhere.
    const auto bound = connection->bindAll(
        WantedGlobal { &zwlr_data_control_manager_v1_interface, 1, zwlr_data_control_manager_v1_destroy },
        WantedGlobal { &wl_seat_interface, 1, wl_seat_destroy });
    if (!bound) {
        qCDebug(lcClipboard) << "the compositor does not share the clipboard with background clients";
        return nullptr;
    }
    const auto [manager, seat] = *bound;
    return std::unique_ptr<DataControlPasteboard>(
        new DataControlPasteboard(std::move(connection), manager, seat, ownClipboard));
}

DataControlPasteboard::DataControlPasteboard(std::unique_ptr<WaylandConnection> connection,
    zwlr_data_control_manager_v1 *manager, wl_seat *seat, QClipboard *ownClipboard)
    : m_connection(std::move(connection))
    , m_manager(manager)
    , m_seat(seat)
    , m_ownClipboard(ownClipboard)
{
    // The compositor answers with the current selection; it arrives through the event loop.
    m_device = zwlr_data_control_manager_v1_get_data_device(m_manager, m_seat);
    zwlr_data_control_device_v1_add_listener(m_device, &deviceListener, this);
    m_connection->flush();
}

DataControlPasteboard::~DataControlPasteboard()
{
    for (auto it = m_offers.cbegin(); it != m_offers.cend(); ++it)
        zwlr_data_control_offer_v1_destroy(it.key());
    for (auto it = m_sources.cbegin(); it != m_sources.cend(); ++it)
        zwlr_data_control_source_v1_destroy(it.key());
    if (m_device)
        zwlr_data_control_device_v1_destroy(m_device);
    zwlr_data_control_manager_v1_destroy(m_manager);
    wl_seat_destroy(m_seat);
    m_connection->flush();
}

void DataControlPasteboard::forgetSelection()
{
    // A new selection replaces the offer of the one before: the protocol leaves it to us.
    if (!m_selection)
        return;
    m_offers.remove(m_selection);
    zwlr_data_control_offer_v1_destroy(std::exchange(m_selection, nullptr));
}

const QMimeData *DataControlPasteboard::qtContents() const
{
    // What our own windows copied through Qt (the popup's Copy) is sent by this very
    // thread, in one blocking write: a pipe that only this thread empties would never
    // take more than its buffer.
    if (m_ownClipboard && m_ownClipboard->ownsClipboard())
        return m_ownClipboard->mimeData(QClipboard::Clipboard);
    return nullptr;
}

void DataControlPasteboard::string(std::function<void(std::optional<QString>)> done) const
{
    // Our own contents are at hand; another program's are asked for.
    if (m_ownSource) {
        done(textOf(*m_sources.value(m_ownSource)));
        return;
    }
    if (const QMimeData *contents = qtContents()) {
        done(contents->hasText() ? std::optional(contents->text()) : std::nullopt);
        return;
    }
    const QStringList offered = m_offers.value(m_selection);
    const auto best = std::find_if(textTypes.cbegin(), textTypes.cend(),
        [&offered](const QString &type) { return offered.contains(type); });
    if (!m_selection || best == textTypes.cend()) {
        done(std::nullopt);
        return;
    }
    const QString type = *best;
    QPointer<const DataControlPasteboard> self(this);
    OfferReader::read(*m_connection, m_selection, type, [self, type, done = std::move(done)](auto bytes) {
        if (!self)
            return;
        qCDebug(lcClipboard) << "read" << type << (bytes ? bytes->size() : -1) << "bytes";
        done(bytes
                ? std::optional(type == u"STRING" ? QString::fromLatin1(*bytes) : QString::fromUtf8(*bytes))
                : std::nullopt);
    });
}

void DataControlPasteboard::clear()
{
    if (m_ownSource) {
        m_sources.remove(m_ownSource);
        zwlr_data_control_source_v1_destroy(std::exchange(m_ownSource, nullptr));
    }
    if (m_device)
        zwlr_data_control_device_v1_set_selection(m_device, nullptr);
    m_connection->flush();
}

void DataControlPasteboard::setString(const QString &text)
{
    auto contents = std::make_shared<QMimeData>();
    for (const QString &type : textTypes)
        contents->setData(type, text.toUtf8());
    contents->setData(passwordManagerHint, "secret");
    offer(contents);
}

void DataControlPasteboard::snapshot(std::function<void(Snapshot)> done) const
{
    if (m_ownSource) {
        done(m_sources.value(m_ownSource));
        return;
    }
    if (const QMimeData *contents = qtContents()) {
        auto copy = std::make_shared<QMimeData>();
        const QStringList formats = contents->formats();
        for (const QString &format : formats)
            copy->setData(format, contents->data(format));
        done(copy);
        return;
    }
    const QStringList formats = m_offers.value(m_selection);
    if (!m_selection || formats.isEmpty()) {
        done(nullptr);
        return;
    }
    // Every format at once; each answer lands in its place, so the copy keeps the
    // holder's order of preference.
    struct Reading
    {
        QList<std::optional<QByteArray>> answers;
        qsizetype remaining = 0;
    };
    auto reading = std::make_shared<Reading>();
    reading->answers.resize(formats.size());
    reading->remaining = formats.size();
    QPointer<const DataControlPasteboard> self(this);
    for (qsizetype i = 0; i < formats.size(); ++i) {
        OfferReader::read(
            *m_connection, m_selection, formats.at(i), [self, reading, formats, i, done](auto bytes) {
                reading->answers[i] = std::move(bytes);
                if (--reading->remaining > 0 || !self)
                    return;
                auto copy = std::make_shared<QMimeData>();
                for (qsizetype at = 0; at < formats.size(); ++at) {
                    if (reading->answers.at(at))
                        copy->setData(formats.at(at), *reading->answers.at(at));
                    else
                        qCDebug(lcClipboard) << "no answer for" << formats.at(at);
                }
                done(copy->formats().isEmpty() ? nullptr : Snapshot(copy));
            });
    }
}

void DataControlPasteboard::restore(const Snapshot &snapshot)
{
    if (!snapshot) {
        clear();
        return;
    }
    offer(snapshot);
}

void DataControlPasteboard::offer(const std::shared_ptr<const QMimeData> &contents)
{
    if (!m_device)
        return;
    zwlr_data_control_source_v1 *source = zwlr_data_control_manager_v1_create_data_source(m_manager);
    zwlr_data_control_source_v1_add_listener(source, &sourceListener, this);
    const QStringList formats = contents->formats();
    for (const QString &format : formats)
        zwlr_data_control_source_v1_offer(source, format.toUtf8().constData());
    m_sources.insert(source, contents);
    m_ownSource = source;
    zwlr_data_control_device_v1_set_selection(m_device, source);
    m_connection->flush();
    qCDebug(lcClipboard) << "offering" << formats;
}
