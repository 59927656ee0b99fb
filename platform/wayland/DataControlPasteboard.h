#pragma once

#include "Platform.h"

#include <QHash>
#include <QObject>

#include <memory>

class QClipboard;
class WaylandConnection;
struct wl_seat;
struct zwlr_data_control_device_v1;
struct zwlr_data_control_manager_v1;
struct zwlr_data_control_offer_v1;
struct zwlr_data_control_source_v1;
struct zwlr_data_control_device_v1_listener;
struct zwlr_data_control_offer_v1_listener;
struct zwlr_data_control_source_v1_listener;

// The clipboard on Wayland compositors that share it with background clients (the
// data-control protocol of Plasma and the wlroots desktops): read, set and restored
// while another program has the keyboard focus, which QClipboard cannot do there.
class DataControlPasteboard : public QObject, public Pasteboard
{
    Q_OBJECT
public:
    // nullptr without a Wayland display, or when the compositor does not offer the protocol.
    // ownClipboard is this program's QClipboard, whose contents are read in-process.
    static std::unique_ptr<DataControlPasteboard> open(QClipboard *ownClipboard = nullptr);
    ~DataControlPasteboard() override;

    int changeCount() const override { return m_changeCount; }
    void string(std::function<void(std::optional<QString>)> done) const override;
    void clear() override;
    void setString(const QString &text) override;
    void snapshot(std::function<void(Snapshot)> done) const override;
    void restore(const Snapshot &snapshot) override;

Q_SIGNALS:
    // The clipboard changed hands (changeCount rose).
    void changed();

private:
    DataControlPasteboard(std::unique_ptr<WaylandConnection> connection,
        zwlr_data_control_manager_v1 *manager, wl_seat *seat, QClipboard *ownClipboard);
    const QMimeData *qtContents() const;
    void offer(const std::shared_ptr<const QMimeData> &contents);
    void forgetSelection();

    static const zwlr_data_control_device_v1_listener deviceListener;
    static const zwlr_data_control_offer_v1_listener offerListener;
    static const zwlr_data_control_source_v1_listener sourceListener;

    std::unique_ptr<WaylandConnection> m_connection;
    zwlr_data_control_manager_v1 *m_manager;
    wl_seat *m_seat;
    zwlr_data_control_device_v1 *m_device = nullptr;
    // Every offer the compositor introduced and not yet replaced, with its formats in
    // the holder's order of preference.
    QHash<zwlr_data_control_offer_v1 *, QStringList> m_offers;
    zwlr_data_control_offer_v1 *m_selection = nullptr;
    // What we put on the clipboard, per source, until another program replaces it.
    QHash<zwlr_data_control_source_v1 *, std::shared_ptr<const QMimeData>> m_sources;
    zwlr_data_control_source_v1 *m_ownSource = nullptr;
    QClipboard *m_ownClipboard;
    int m_changeCount = 0;
};
